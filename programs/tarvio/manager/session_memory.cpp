#include "manager/session_memory.h"

#include <dirent.h>

#include <cerrno>
#include <cstdlib>

#include "base/owners.h"
#include "process/failure.h"
#include "runtime/process_id.h"

namespace client {

namespace {

constexpr char kCannotRead[] = "cannot read the processes in /proc";

bool has_gone(int error) { return error == ENOENT || error == ESRCH; }

}  // namespace

// Too small a figure would look like a right one.
SessionMemory::SessionMemory() {
  const tarvio::Directory processes(opendir("/proc"));
  if (processes == nullptr) throw Failure::of_system(kCannotRead);
  errno = 0;
  while (const dirent* const entry = readdir(processes.get())) {
    const auto pid = static_cast<pid_t>(strtol(entry->d_name, nullptr, 10));
    runtime::ProcessFacts facts;
    if (pid > 0 && runtime::read_process(pid, facts)) {
      sessions_[pid] = facts.session;
      bytes_[facts.session] += facts.memory_bytes;
    } else if (pid > 0 && !has_gone(errno)) {
      throw Failure::of_system(kCannotRead);
    }
    errno = 0;
  }
  if (errno != 0) throw Failure::of_system(kCannotRead);
}

std::optional<uint64_t> SessionMemory::of(pid_t pid) const {
  const auto session = sessions_.find(pid);
  if (session == sessions_.end()) return std::nullopt;
  return bytes_.at(session->second);
}

}  // namespace client
