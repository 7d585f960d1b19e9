// The files of a directory, as they change.
#ifndef TARVIO_CLIENT_PROCESS_DIRECTORY_WATCH_H
#define TARVIO_CLIENT_PROCESS_DIRECTORY_WATCH_H

#include <cstdint>
#include <string>

#include "base/deadline.h"
#include "base/owners.h"

namespace client {

class DirectoryWatch {
 public:
  // events  of inotify, that count as a change. Throws a Failure when it cannot be watched.
  DirectoryWatch(const std::string& directory, uint32_t events);

  // Waits for a change since the construction or the last call. False when the deadline passed
  // first.
  [[nodiscard]] bool wait(const tarvio::Deadline& deadline) const;

 private:
  std::string directory_;
  tarvio::Fd inotify_;
};

}  // namespace client

#endif
