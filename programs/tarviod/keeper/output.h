// What applications print, passed on to the system log.
#ifndef TARVIOD_OUTPUT_H
#define TARVIOD_OUTPUT_H

#include <sys/types.h>

#include "base/deadline.h"
#include "base/owners.h"

namespace tarviod {

// Facility of these lines, so that the log watch does not take them for reports about the
// application.
inline constexpr int kOutputFacility = 22;  // local6

// Cuts what arrives into lines and sends each as a datagram to /dev/log, under the name and the
// process id of its application. Never waits: lines queue up while the log does not take them.
class Output {
 public:
  Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output();

  // False, with errno, when that failed.
  bool open();

  // Passes on what comes out of a pipe until its last writer has closed it.
  //
  // is_error  lines count as notices, else as information.
  //
  // False, with errno, when that failed: nothing is passed on.
  bool add(tarvio::Fd read_end, const char* name, pid_t pid, bool is_error);

  // Becomes readable when `handle` has something to do.
  [[nodiscard]] int fd() const;
  // When `handle` is to be called without that; never while nothing is queued.
  [[nodiscard]] const tarvio::Deadline& due() const;
  void handle();

 private:
  struct State;
  State* state_ = nullptr;
};

}  // namespace tarviod

#endif
