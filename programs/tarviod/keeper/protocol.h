// What the manager and the keeper say to each other: records of a fixed size, each a packet of a
// SOCK_SEQPACKET socket. Both ends are the same program, perhaps of different releases.
#ifndef TARVIOD_PROTOCOL_H
#define TARVIOD_PROTOCOL_H

#include <fcntl.h>
#include <stdint.h>

#include "runtime/process_id.h"
#include "runtime/state_file.h"

namespace tarviod {

// Changes with the layout of any record. A keeper of another release answers EPROTO to everything
// but Ask::kEnd, whose first fields stay as they are.
inline constexpr uint32_t kKeeperProtocol = 1;

inline constexpr int kMaxNameBytes = 127;
inline constexpr int kMaxVersionBytes = 127;
inline constexpr int kMaxFileBytes = 1023;
inline constexpr int kMaxUserBytes = 63;

enum class Ask : uint32_t {
  kApplications,  // answered with a reply, and a KeptApp for each application after it
  // Answered when the application is recorded and runs: with EALREADY when it did before, with
  // EBUSY while it is being stopped.
  kStart,
  // Answered when its last process has ended, with what kept its stop file from running; with 0
  // when there was none, too.
  kStop,
  kWatch,  // answered, and from then on with a byte after each change of an application
  kEnd,    // stops all applications, then answers and ends
};

// Of a file that applications print to. Without O_NONBLOCK a FIFO would hold the call until
// somebody reads from it.
inline constexpr int kOutputFlags =
    O_WRONLY | O_APPEND | O_CREAT | O_NOCTTY | O_NONBLOCK | O_CLOEXEC;
inline constexpr mode_t kOutputMode = 0644;

// 0: as the manager's.
struct AppLimits {
  int64_t memory_bytes;  // address space
  int64_t open_files;
  int64_t processes;  // of the user
};

// How an application is run. Texts end with a zero byte; an empty one is not set. It is made with
// all bytes 0: initial values would be an image of it in each place that makes one.
struct AppSetup {
  char start_file[kMaxFileBytes + 1];
  char stop_file[kMaxFileBytes + 1];
  char version[kMaxVersionBytes + 1];  // of the package, to be given back
  char output[kMaxFileBytes + 1];      // "syslog", a file's absolute path, or "inherit"
  char user[kMaxUserBytes + 1];
  char group[kMaxUserBytes + 1];
  int32_t nice;
  int32_t stop_timeout_ms;  // until SIGTERM, and from there until SIGKILL
  int32_t starts;           // this one included; given back
  AppLimits limits;
};

struct KeeperRequest {
  uint32_t protocol;
  Ask ask;
  char name[kMaxNameBytes + 1];
  AppSetup setup;  // of a start
};

inline KeeperRequest request_for(Ask ask) {
  KeeperRequest request = {};
  request.protocol = kKeeperProtocol;
  request.ask = ask;
  return request;
}

struct KeeperReply {
  uint32_t protocol = kKeeperProtocol;
  int32_t code = 0;   // 0 or an error code; below 0, the negative one of the ledger
  int32_t count = 0;  // of the records that follow
};

enum class KeptState : int32_t {
  kRunning,
  kStopping,  // a stop was asked for and has not ended yet
  kStopped,   // ended by a stop that was asked for
  kEnded,     // ended by itself
};

// An application that the keeper has started at least once. Made as a setup is.
struct KeptApp {
  char name[kMaxNameBytes + 1];
  char version[kMaxVersionBytes + 1];
  KeptState state;
  // The start file's, or, once that has ended, the oldest one of the application.
  runtime::ProcessId process;
  int64_t since;  // of the state, in seconds since the epoch
  int32_t starts;
  int32_t stop_timeout_ms;
  // As waitpid gives it, once the application has ended; else -1. The start file's, or, when that
  // one is 0, that of the process of its session that has ended last.
  int32_t exit_status;
  runtime::AppExit not_run;  // what kept the start file from running; of no kind when nothing did
};

}  // namespace tarviod

#endif
