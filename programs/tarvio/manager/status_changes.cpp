#include "manager/status_changes.h"

#include <algorithm>

#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace client {

namespace {

const Status* find(const std::vector<Status>& statuses, const std::string& name) {
  const auto status = std::find_if(statuses.begin(), statuses.end(),
                                   [&](const Status& each) { return each.name == name; });
  return status == statuses.end() ? nullptr : &*status;
}

}  // namespace

std::vector<StatusChange> changes_between(const std::vector<Status>& before,
                                          const std::vector<Status>& now) {
  std::vector<StatusChange> changes;
  for (const Status& status : before) {
    if (find(now, status.name) == nullptr) changes.push_back({status.name, std::nullopt});
  }
  for (const Status& status : now) {
    const Status* const known = find(before, status.name);
    if (known == nullptr || *known != status) changes.push_back({status.name, status});
  }
  return changes;
}

std::string change_line(const StatusChange& change) {
  std::string line = printable(change.name) + "  ";
  if (!change.now) return line + "gone\n";
  line += state_word(change.now->state);
  if (!change.now->detail.empty()) line += "  " + printable(change.now->detail);
  return line + '\n';
}

}  // namespace client
