// The manager's replies.
#ifndef TARVIO_CLIENT_MANAGER_MANAGER_REPLY_H
#define TARVIO_CLIENT_MANAGER_MANAGER_REPLY_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace client {

struct Status {
  std::string name;
  int32_t state = 0;
  std::string detail;

  bool operator==(const Status&) const = default;
};

struct StatusReply {
  std::vector<Status> statuses;
  bool complete = true;  // false when the reply ends, or goes wrong, in the middle of a status
};

// Null when there is none of that name.
const Status* find_status(const std::vector<Status>& statuses, const std::string& name);

// None for what is not a decimal number and nothing else.
std::optional<int32_t> parse_number(std::string_view text);

// Reads a status reply: three lines per status. Only a line feed ends a line. Of a reply that is
// truncated or garbled, the statuses before that place are kept, and the last one as soon as its
// state is known.
StatusReply parse_statuses(std::string_view bytes);

// Reads the reply to a start or stop request: the result code and one or two line feeds. None for
// anything else.
std::optional<int32_t> parse_result_code(std::string_view bytes);

}  // namespace client

#endif
