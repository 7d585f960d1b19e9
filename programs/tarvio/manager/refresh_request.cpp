#include "manager/refresh_request.h"

#include <cerrno>
#include <string>
#include <string_view>

#include "base/line_cutter.h"
#include "manager/manager_client.h"
#include "manager/manager_reply.h"
#include "process/failure.h"

namespace client {

namespace {

// Takes the line "WORD NUMBER" off the text.
int take_count(std::string_view& text, std::string_view word) {
  std::string_view line = tarvio::take_line(text);
  const bool is_expected = line.starts_with(word);
  line.remove_prefix(is_expected ? word.size() : 0);
  const std::optional<int32_t> count = parse_number(line);
  if (is_expected && count) return *count;
  throw Failure(EPROTO, "the manager's reply to a refresh is truncated or garbled");
}

}  // namespace

std::optional<Refreshed> ask_refresh(double timeout_seconds) {
  const std::string reply = ask_whole("refresh_apps", timeout_seconds);
  if (reply.empty()) return std::nullopt;
  std::string_view text = reply;
  Refreshed refreshed = {.code = take_count(text, "")};
  if (refreshed.code != 0) return refreshed;
  refreshed.added = take_count(text, "added ");
  refreshed.removed = take_count(text, "removed ");
  refreshed.changed = take_count(text, "changed ");
  return refreshed;
}

}  // namespace client
