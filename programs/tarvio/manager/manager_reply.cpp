#include "manager/manager_reply.h"

#include <algorithm>

#include "base/line_cutter.h"
#include "process/text_pieces.h"

namespace client {

namespace {

// Takes a line off the text; none when it has no line feed.
std::optional<std::string_view> take_whole_line(std::string_view& text) {
  if (text.find('\n') == std::string_view::npos) return std::nullopt;
  return tarvio::take_line(text);
}

}  // namespace

std::optional<int32_t> parse_number(std::string_view text) {
  int32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped_at, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stopped_at != end) return std::nullopt;
  return number;
}

const Status* find_status(const std::vector<Status>& statuses, const std::string& name) {
  const auto status = std::find_if(statuses.begin(), statuses.end(),
                                   [&](const Status& each) { return each.name == name; });
  return status == statuses.end() ? nullptr : &*status;
}

StatusReply parse_statuses(std::string_view bytes) {
  StatusReply reply;
  while (reply.complete && !bytes.empty()) {
    const std::optional<std::string_view> name = take_whole_line(bytes);
    const std::optional<std::string_view> state_text = take_whole_line(bytes);
    const std::optional<int32_t> state =
        state_text ? parse_number<int32_t>(*state_text) : std::nullopt;
    if (!name || !state) {
      reply.complete = false;
      break;
    }
    const std::optional<std::string_view> detail = take_whole_line(bytes);
    reply.complete = detail.has_value();
    reply.statuses.push_back({std::string(*name), *state, std::string(detail ? *detail : bytes)});
  }
  return reply;
}

std::optional<int32_t> parse_result_code(std::string_view bytes) {
  const std::optional<std::string_view> line = take_whole_line(bytes);
  if (!line || (!bytes.empty() && bytes != "\n")) return std::nullopt;
  return parse_number<int32_t>(*line);
}

}  // namespace client
