// What the manager knows of applications, for people and for scripts.
#ifndef TARVIO_CLIENT_MANAGER_APP_TEXT_H
#define TARVIO_CLIENT_MANAGER_APP_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "manager/manager_reply.h"
#include "manager/manager_state.h"
#include "terminal/json.h"

namespace client {

// An application, a status, or both of the same name.
struct Entry {
  std::string name;
  std::optional<AppFacts> app;
  std::optional<uint64_t> memory_bytes = {};
  std::optional<Status> status;
};

// The applications, and then the statuses that are not of an application.
std::vector<Entry> entries_of(const ManagerState& state);

std::string state_word(const AppFacts& app);

// "status", "signal" or "error", for an end.
const char* kind_word(const runtime::AppExit& exit);

// How the last run ended: "status 3", "signal 9: Killed", "cannot run its start file: Permission
// denied"; empty when none has ended.
std::string end_words(const runtime::AppExit& exit);

// Name, state and detail of a status.
Json json_of(const Status& status);
// All members of an entry; null for what is not known.
Json json_of(const Entry& entry);

std::string table_of(const std::vector<Entry>& entries);

}  // namespace client

#endif
