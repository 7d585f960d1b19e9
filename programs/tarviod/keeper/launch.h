// Runs the start file or the stop file of an application.
#ifndef TARVIOD_LAUNCH_H
#define TARVIOD_LAUNCH_H

#include <stdint.h>

#include "base/owners.h"
#include "keeper/protocol.h"

namespace tarviod {

// An AppSetup without the room for the longest texts.
struct RunSettings {
  tarvio::CString stop_file;
  tarvio::CString version;
  tarvio::CString output;
  tarvio::CString user;
  tarvio::CString group;
  int32_t nice = 0;
  int32_t stop_timeout_ms = 0;
  int32_t starts = 0;
  AppLimits limits;

  // False, with errno, when memory runs out.
  bool take(const AppSetup& setup);
};

// Standard output and standard error; /dev/null where one is not valid.
struct Streams {
  tarvio::Fd output;
  tarvio::Fd errors;
};

struct Program {
  const char* application;
  const char* file;
  int copy_fd;  // what is run in place of the file, and stays open in it; -1 for the file itself
  const RunSettings& settings;
  const Streams& streams;  // unless the output goes to a file
};

// A child process from its fork on, in a session of its own.
class Launch {
 public:
  // Forks a child that waits for `go`, and ends when this object or its process is gone before.
  // False, with errno, when that failed.
  bool prepare(const Program& program);
  // Returns once the program is executed or could not be, or takes longer than it should.
  void go();

  // Whether it has this process id and has not ended yet.
  [[nodiscard]] bool runs_as(pid_t pid) const { return is_running() && id_.pid == pid; }
  [[nodiscard]] bool is_running() const { return id_.pid != 0 && status_ == kNone; }
  // Its end, with a status as waitpid gives it.
  void end(int status);

  [[nodiscard]] const runtime::ProcessId& id() const { return id_; }  // 0 before `prepare`
  [[nodiscard]] int status() const { return status_; }                // -1 until its end
  // What kept the program from running; of no kind as long as nothing did.
  [[nodiscard]] const runtime::AppExit& failure() const { return failure_; }

 private:
  static constexpr int kNone = -1;

  void take_failure();

  runtime::ProcessId id_;
  int status_ = kNone;
  runtime::AppExit failure_;
  tarvio::Fd channel_;  // takes the word to go on, and gives the failure
};

}  // namespace tarviod

#endif
