// tarvio status: what the manager watches, once or as it changes.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands/applications/app_request.h"
#include "commands/arguments.h"
#include "commands/commands.h"
#include "manager/app_text.h"
#include "manager/manager_client.h"
#include "manager/manager_reply.h"
#include "manager/manager_state.h"
#include "manager/status_text.h"
#include "process/failure.h"
#include "tarvio/status.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/words.h"

namespace client {

namespace {

constexpr Option kApps = {.name = "apps", .help = "applications only"};
constexpr Option kWatch = {
    .name = "watch", .help = "keep running: redraw on a terminal, else print a line per change"};
constexpr Option kWide = {
    .name = "wide",
    .help = "all applications, with process, starts, last exit, memory and version"};
constexpr std::array kOptions = {kApps, kWatch, kWide};

struct Request {
  std::optional<std::string> name;
  bool apps_only;
  double timeout_seconds;
  bool is_json;
};

Request request_in(const Arguments& arguments) {
  Request request = {.name = std::nullopt,
                     .apps_only = arguments.has(kApps),
                     .timeout_seconds = arguments.timeout_seconds,
                     .is_json = arguments.has(kJson)};
  if (!arguments.operands.empty()) request.name = application_name(arguments.operands.front());
  return request;
}

Answer ask(const Request& request) {
  return ask_manager(request.apps_only ? "status_app" : "status_all", nullptr,
                     request.timeout_seconds);
}

Json json_of(const StatusChange& change) {
  return change.now ? json_of(*change.now) : Json{{"name", change.name}, {"state", nullptr}};
}

Result no_match(const std::string& name) {
  return {.status = kNoMatch,
          .complaint = "no status for '" + name + "': not started, or not an exact name"};
}

ExitStatus exit_status_of(int32_t state) {
  switch (state) {
    case TQ_STATE_NORMAL:
      return kDone;
    case TQ_STATE_ERROR:
      return kStateError;
    default:
      return kStateWarning;
  }
}

// What the manager has written, in place of a request.
Result show_wide(const Arguments& arguments, const Request& request) {
  if (arguments.has(kWatch)) throw UsageError("--wide cannot be used with --watch");
  if (arguments.has(kWaitManager)) await_state(arguments.seconds_of(kWaitManager, 0));
  std::vector<Entry> entries = entries_of(state_of_manager());
  std::erase_if(entries, [&](const Entry& entry) {
    return (request.name && entry.name != *request.name) || (arguments.has(kApps) && !entry.app);
  });
  Result result;
  Json json = Json::array();
  for (const Entry& entry : entries) json.push_back(json_of(entry));
  if (!entries.empty()) {
    result.text = table_of(entries);
  } else if (!request.name && !request.is_json) {
    result.complaint = "no applications and no statuses";
  }
  result.json = text_of(json);
  if (!request.name) return result;
  if (entries.empty()) return no_match(*request.name);
  result.json = text_of(json.front());
  const std::optional<Status>& status = entries.front().status;
  result.status = status ? exit_status_of(status->state) : kNoMatch;
  return result;
}

Result all_of(const std::vector<Status>& statuses, bool is_json) {
  Result result;
  if (!statuses.empty()) {
    result.text = table_of(statuses);
  } else if (!is_json) {
    result.complaint = "no statuses";
  }
  Json json = Json::array();
  for (const Status& status : statuses) json.push_back(json_of(status));
  result.json = text_of(json);
  return result;
}

Result one_of(const std::vector<Status>& statuses, const std::string& name) {
  const Status* const status = find_status(statuses, name);
  if (status == nullptr) return no_match(name);
  return {.status = exit_status_of(status->state),
          .text = table_of({*status}),
          .json = text_of(json_of(*status))};
}

// Empty for a whole reply.
std::string defect_of(const Answer& answer, const StatusReply& reply) {
  const std::string broken = broken_off(answer);
  return broken.empty() && !reply.complete ? kTruncated : broken;
}

Result show(const Request& request) {
  const Answer answer = ask(request);
  const StatusReply reply = parse_statuses(answer.bytes);
  Result result = request.name ? one_of(reply.statuses, *request.name)
                               : all_of(reply.statuses, request.is_json);
  const std::string defect = defect_of(answer, reply);
  if (defect.empty()) return result;
  // Such a reply says nothing about what is not in it: that is neither unknown nor gone.
  if (reply.statuses.empty()) result.json.clear();
  result.status = kFailed;
  result.complaint = defect;
  return result;
}

constexpr unsigned kSecondsBetweenLooks = 1;
constexpr char kWaiting[] = "no manager answers; waiting for one";
constexpr char kClearScreen[] = "\x1b[H\x1b[2J";

// The beginning of a text, with a note of how many lines are missing. The last row is the cursor's.
std::string fitted(const std::string& text, size_t rows) {
  const auto lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
  if (lines < rows) return text;
  const size_t kept = rows < 3 ? 0 : rows - 2;
  size_t end = 0;
  for (size_t line = 0; line < kept; ++line) end = text.find('\n', end) + 1;
  return text.substr(0, end) + "... " + std::to_string(lines - kept) + " more\n";
}

// Redraws the whole table in its place whenever it, or the size of the terminal, has changed.
class Screen {
 public:
  bool show(const std::vector<Status>& statuses) {
    return draw(statuses.empty() ? "no statuses\n" : table_of(statuses, screen_size().columns - 1));
  }
  bool show_no_manager() { return draw(std::string(kWaiting) + '\n'); }

 private:
  bool draw(const std::string& text) {
    const ScreenSize size = screen_size();
    if (text == shown_ && size == size_) return true;
    shown_ = text;
    size_ = size;
    return print(kClearScreen + fitted(text, size.rows));
  }

  std::string shown_;
  ScreenSize size_ = {};
};

// Prints a line for each change. What is there at the beginning counts as one. A script also learns
// when the manager goes and comes.
class Lines {
 public:
  explicit Lines(bool is_json) : is_json_(is_json) {}

  bool show(const std::vector<Status>& statuses) {
    std::string text;
    if (std::exchange(is_reported_, false) && is_json_) text = line_of({{"manager", "back"}});
    for (const StatusChange& change : changes_between(known_, statuses)) {
      text += is_json_ ? line_of(json_of(change)) : change_line(change);
    }
    known_ = statuses;
    return text.empty() || print(text);
  }

  bool show_no_manager() {
    if (std::exchange(is_reported_, true)) return true;
    complain(kWaiting);
    return !is_json_ || print(line_of({{"manager", "gone"}}));
  }

 private:
  bool is_json_;
  bool is_reported_ = false;
  std::vector<Status> known_;
};

std::vector<Status> only_named(const std::optional<std::string>& name,
                               std::vector<Status> statuses) {
  if (name) std::erase_if(statuses, [&](const Status& status) { return status.name != *name; });
  return statuses;
}

// What the manager would reply, without asking it: each request costs it memory. None when it has
// to be asked all the same; which statuses are those of applications is not written down.
std::optional<std::vector<Status>> written_statuses(const Request& request) {
  std::optional<ManagerState> state;
  if (!request.apps_only) state = read_state();
  if (!state) return std::nullopt;
  return std::move(state->statuses);
}

template <typename Display>
bool look(const Request& request, bool is_first, Display& display) {
  if (std::optional<std::vector<Status>> statuses = written_statuses(request)) {
    return display.show(only_named(request.name, *std::move(statuses)));
  }
  try {
    const Answer answer = ask(request);
    const StatusReply reply = parse_statuses(answer.bytes);
    const std::string defect = defect_of(answer, reply);
    if (!defect.empty() && is_first) throw Failure(EPROTO, defect);
    if (!defect.empty()) return true;  // the next look shows it
    return display.show(only_named(request.name, reply.statuses));
  } catch (const Failure& failure) {
    if (is_first || failure.status() != kNoManager) throw;
    return display.show_no_manager();
  }
}

// Until a signal ends the process, or the output cannot be written.
template <typename Display>
Result watch(const Request& request, Display display) {
  for (bool is_first = true; look(request, is_first, display); is_first = false) {
    (void)sleep(kSecondsBetweenLooks);
  }
  return {.status = kFailed};
}

Result run(const Arguments& arguments) {
  const Request request = request_in(arguments);
  if (arguments.has(kWide)) return show_wide(arguments, request);
  if (!arguments.has(kWatch)) return show(request);
  return is_screen() && !request.is_json ? watch(request, Screen())
                                         : watch(request, Lines(request.is_json));
}

}  // namespace

const Command kStatusCommand = {
    .word = "status",
    .operands = {.name = "NAME", .max = 1, .offer = Offer::kApplications},
    .options = kOptions,
    .timeout = kManagerTimeout,
    .need = Need::kAnswer,
    .summary = "print all statuses, or that of one application",
    .description =
        "Prints the status of everything that the manager watches, or of the application with "
        "exactly this NAME. States: normal, warning, error. An application has a status from its "
        "first start until it is stopped. --wide reads what the manager has written of all "
        "applications, without asking it.",
    .statuses =
        "0 done, 1 failed, 3 no manager, 5 no answer in time; with NAME 0 normal, 10 warning, "
        "11 error, 12 no such status",
    .run = run,
};

}  // namespace client
