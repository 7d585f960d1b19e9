// How the client ends, and what ends the work on one operand of the command line.
#ifndef TARVIO_CLIENT_PROCESS_FAILURE_H
#define TARVIO_CLIENT_PROCESS_FAILURE_H

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace client {

// How the client ends, as its manual page lists it.
enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,
  kNoManager = 3,
  kNotRunning = 3,  // of is-running NAME, which has a status of its own for no manager
  kUnknown = 4,
  kTimeout = 5,
  kNotTrusted = 6,     // a signature or a version that the policy does not allow
  kStateWarning = 10,  // of status NAME
  kStateError = 11,
  kNoMatch = 12,  // nothing has the NAME that was looked for
  kUsage = 64,
};

// What ends the work on one operand.
class Failure : public std::runtime_error {
 public:
  Failure(int code, const std::string& what, ExitStatus status = kFailed)
      : std::runtime_error(what), code_(code), status_(status) {}

  // What failed, with the system's reason for it.
  static Failure of_system(const std::string& what) {
    return {errno, what + ": " + strerror(errno)};
  }

  [[nodiscard]] int code() const { return code_; }
  [[nodiscard]] ExitStatus status() const { return status_; }

 private:
  int code_;  // an errno value or a code of the library, never 0
  ExitStatus status_;
};

}  // namespace client

#endif
