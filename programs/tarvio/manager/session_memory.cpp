#include "manager/session_memory.h"

#include <dirent.h>

#include <cstdlib>

#include "base/owners.h"
#include "runtime/process_id.h"

namespace client {

SessionMemory::SessionMemory() {
  const tarvio::Directory processes(opendir("/proc"));
  if (processes == nullptr) return;
  while (const dirent* const entry = readdir(processes.get())) {
    const auto pid = static_cast<pid_t>(strtol(entry->d_name, nullptr, 10));
    runtime::ProcessFacts facts;
    if (pid > 0 && runtime::read_process(pid, facts)) bytes_[facts.session] += facts.memory_bytes;
  }
}

std::optional<uint64_t> SessionMemory::of(pid_t session) const {
  const auto found = bytes_.find(session);
  if (session == 0 || found == bytes_.end()) return std::nullopt;
  return found->second;
}

}  // namespace client
