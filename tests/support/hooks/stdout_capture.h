// Keeps what the process and its children write to standard output while it lives.
#ifndef TARVIO_TESTS_SUPPORT_HOOKS_STDOUT_CAPTURE_H
#define TARVIO_TESTS_SUPPORT_HOOKS_STDOUT_CAPTURE_H

#include <string>

namespace tarvio_test {

class StdoutCapture {
 public:
  StdoutCapture();
  ~StdoutCapture();
  StdoutCapture(const StdoutCapture&) = delete;
  StdoutCapture& operator=(const StdoutCapture&) = delete;

  // All that was written so far.
  std::string text() const;

 private:
  int before_;  // the standard output that is put back at the end
  int kept_;    // a file in memory
};

}  // namespace tarvio_test

#endif
