// How much memory applications use.
#ifndef TARVIO_CLIENT_MANAGER_SESSION_MEMORY_H
#define TARVIO_CLIENT_MANAGER_SESSION_MEMORY_H

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>

namespace client {

// The resident memory of each session, at one moment.
class SessionMemory {
 public:
  // Reads /proc, or throws a Failure.
  SessionMemory();

  // Bytes, of the session that a process is in; none for a process that does not exist.
  [[nodiscard]] std::optional<uint64_t> of(pid_t pid) const;

 private:
  std::map<pid_t, pid_t> sessions_;
  std::map<pid_t, uint64_t> bytes_;
};

}  // namespace client

#endif
