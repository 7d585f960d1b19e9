// How the client ends, as its manual page lists it.
#ifndef TARVIO_CLIENT_PROCESS_EXIT_STATUS_H
#define TARVIO_CLIENT_PROCESS_EXIT_STATUS_H

namespace client {

enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,        // the request failed
  kStateWarning = 1,  // status NAME, from here ...
  kStateError = 2,
  kNoStatus = 4,  // ... to here
  kNoManager = 3,
  kTimeout = 5,
  kUsage = 64,
};

}  // namespace client

#endif
