// libtarvio for C++17: values that own what they hold, and std::error_code, over the C calls of client.h
// and backup.h, which say what each one does.
//
//   std::error_code error;
//   for (const tarvio::Package &package : tarvio::packages(error)) show(package.name, package.version);
//   if (!error) error = tarvio::Manager().start("clock");
//   if (error) std::fprintf(stderr, "%s\n", error.message().c_str());
//
// A function that returns a value sets its argument `error` in every case; the others return the error.
// Nothing is thrown but what the standard library throws when memory runs out, and all compiles with
// -fno-exceptions and -fno-rtti. Except for back_up and restore, functions may be called from any thread
// at any time.
#ifndef TARVIO_TARVIO_HPP
#define TARVIO_TARVIO_HPP

#include "tarvio/error.hpp"
#include "tarvio/flash.hpp"
#include "tarvio/manager.hpp"
#include "tarvio/packages.hpp"

#endif
