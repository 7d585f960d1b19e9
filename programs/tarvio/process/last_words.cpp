#include "process/last_words.h"

#include <unistd.h>

#include <new>

#include "base/pipe.h"
#include "process/failure.h"
#include "program.h"

namespace client {

namespace {

constexpr char kOutOfMemory[] = "out of memory";

[[noreturn]] void end_with_cause() noexcept {
  // Without a current exception there was no memory for one.
  const char* cause = kOutOfMemory;
  const std::exception_ptr current = std::current_exception();
  try {
    if (current != nullptr) std::rethrow_exception(current);
  } catch (const std::exception& error) {
    cause = cause_of(error);
  } catch (...) {
    cause = "unknown exception";
  }
  write_line(STDERR_FILENO, {kProgram.name, ": ", cause});
  _exit(kFailed);
}

}  // namespace

const char* cause_of(const std::exception& error) noexcept {
  return dynamic_cast<const std::bad_alloc*>(&error) != nullptr ? kOutOfMemory : error.what();
}

void write_line(int fd, std::initializer_list<std::string_view> parts) noexcept {
  for (const std::string_view part : parts) (void)tarvio::write_all(fd, part);
  (void)tarvio::write_all(fd, "\n");
}

void report_uncaught_exceptions() noexcept { std::set_terminate(end_with_cause); }

}  // namespace client
