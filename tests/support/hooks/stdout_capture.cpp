#include "support/hooks/stdout_capture.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace tarvio_test {

StdoutCapture::StdoutCapture() : before_(-1), kept_(::memfd_create("stdout", MFD_CLOEXEC)) {
  std::fflush(stdout);
  before_ = ::dup(STDOUT_FILENO);
  if (before_ < 0 || kept_ < 0 || ::dup2(kept_, STDOUT_FILENO) < 0)
    ADD_FAILURE() << "cannot capture standard output";
}

StdoutCapture::~StdoutCapture() {
  std::fflush(stdout);
  ::dup2(before_, STDOUT_FILENO);
  ::close(before_);
  ::close(kept_);
}

std::string StdoutCapture::text() const {
  std::fflush(stdout);
  struct stat info = {};
  ::fstat(kept_, &info);
  std::string text(static_cast<size_t>(info.st_size), '\0');
  if (::pread(kept_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
    ADD_FAILURE() << "cannot read the captured output";
  return text;
}

}  // namespace tarvio_test
