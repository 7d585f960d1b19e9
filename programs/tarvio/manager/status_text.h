// Statuses for people, and what has changed between two looks at them.
#ifndef TARVIO_CLIENT_MANAGER_STATUS_TEXT_H
#define TARVIO_CLIENT_MANAGER_STATUS_TEXT_H

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "manager/manager_reply.h"
#include "terminal/text_table.h"

namespace client {

struct StatusChange {
  std::string name;
  std::optional<Status> now;  // none when the status of that name is gone
};

// In the order of the later look, those that are gone first.
std::vector<StatusChange> changes_between(const std::vector<Status>& before,
                                          const std::vector<Status>& now);

// The word of a state in its colour.
Cell state_cell(int32_t state);

std::string table_of(const std::vector<Status>& statuses,
                     size_t max_width = std::numeric_limits<size_t>::max());

// One line: "NAME  STATE  DETAIL", or "NAME  gone".
std::string change_line(const StatusChange& change);

}  // namespace client

#endif
