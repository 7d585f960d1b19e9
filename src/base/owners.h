// Owners of what C hands out. Their destructors never change errno, so that an error which is being
// reported survives.
#ifndef TARVIO_SRC_BASE_OWNERS_H
#define TARVIO_SRC_BASE_OWNERS_H

#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <string_view>
#include <utility>

#include "tarvio/conf.h"
#include "tarvio/list.h"

namespace tarvio {

// For an object that a thread uses to the end of the process: it is never destroyed.
template <typename Object>
union Undestroyed {
  constexpr Undestroyed() : object() {}
  ~Undestroyed() {}
  Object object;
};

class ErrnoKeeper {
 public:
  ErrnoKeeper() noexcept : saved_(errno) {}
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
  ~ErrnoKeeper() { errno = saved_; }

 private:
  int saved_;
};

struct Free {
  void operator()(void* memory) const noexcept { std::free(memory); }
};

struct CloseFile {
  void operator()(FILE* file) const noexcept {
    const ErrnoKeeper keeper;
    std::fclose(file);
  }
};

struct ClosePipe {
  void operator()(FILE* stream) const noexcept {
    const ErrnoKeeper keeper;
    ::pclose(stream);
  }
};

struct CloseDirectory {
  void operator()(DIR* directory) const noexcept {
    const ErrnoKeeper keeper;
    ::closedir(directory);
  }
};

// Frees the list and the strings in it.
struct FreeStringList {
  void operator()(tq_list_t* list) const noexcept { tq_list_free(list, 1); }
};

struct CloseConf {
  void operator()(tq_conf* conf) const noexcept { tq_conf_close(conf); }
};

using CString = std::unique_ptr<char, Free>;
template <typename Record>
using Allocated = std::unique_ptr<Record, Free>;
using File = std::unique_ptr<FILE, CloseFile>;
using Stream = std::unique_ptr<FILE, ClosePipe>;
using Directory = std::unique_ptr<DIR, CloseDirectory>;
using StringList = std::unique_ptr<tq_list_t, FreeStringList>;
using Conf = std::unique_ptr<tq_conf, CloseConf>;

// Uninitialised memory for one record of the C interface; null when memory runs out.
template <typename Record>
Allocated<Record> allocate() noexcept {
  return Allocated<Record>(static_cast<Record*>(std::malloc(sizeof(Record))));
}

// Copies that C code frees: null when memory runs out.
CString copy_of(std::string_view text) noexcept;
CString copy_of(const char* text) noexcept;  // null for a null text as well

// Without pairs.
inline Conf make_conf() noexcept {
  Conf conf(allocate<tq_conf>().release());
  if (conf != nullptr) *conf = tq_conf{};
  return conf;
}

class Fd {
 public:
  explicit Fd(int fd = -1) noexcept : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(other.release()) {}
  Fd& operator=(Fd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  ~Fd() { reset(); }

  [[nodiscard]] int get() const noexcept { return fd_; }
  [[nodiscard]] bool valid() const noexcept { return fd_ >= 0; }
  int release() noexcept { return std::exchange(fd_, -1); }
  void reset(int fd = -1) noexcept {
    const ErrnoKeeper keeper;
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_;
};

}  // namespace tarvio

#endif
