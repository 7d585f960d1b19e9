#include "commands/watch_command.h"

#include <unistd.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "manager/manager_client.h"
#include "manager/manager_reply.h"
#include "manager/status_changes.h"
#include "manager/status_table.h"
#include "process/exit_status.h"
#include "terminal/json.h"
#include "terminal/output.h"

namespace client {

namespace {

constexpr unsigned kSecondsBetweenLooks = 1;
constexpr char kNobodyAnswers[] = "no manager answers: waiting for one";
constexpr char kClearScreen[] = "\x1b[H\x1b[2J";

// Draws the whole table anew in its place whenever it has changed.
class Screen {
 public:
  bool show(const std::vector<Status>& statuses) {
    return draw(statuses.empty() ? "no statuses\n" : table_of(statuses));
  }
  bool show_that_nobody_answers() { return draw(std::string(kNobodyAnswers) + '\n'); }

 private:
  bool draw(const std::string& text) {
    if (text == shown_) return true;
    shown_ = text;
    return print(kClearScreen + shown_);
  }

  std::string shown_;
};

// Prints a line for each change. What is there at the beginning counts as one.
class Lines {
 public:
  explicit Lines(bool json) : json_(json) {}

  bool show(const std::vector<Status>& statuses) {
    std::string text;
    for (const StatusChange& change : changes_between(known_, statuses)) {
      text += json_ ? change_json(change) : change_line(change);
    }
    known_ = statuses;
    is_told_ = false;
    return text.empty() || print(text);
  }

  bool show_that_nobody_answers() {
    if (!std::exchange(is_told_, true)) complain(kNobodyAnswers);
    return true;
  }

 private:
  bool json_;
  bool is_told_ = false;
  std::vector<Status> known_;
};

std::vector<Status> only_those_named(const std::optional<std::string>& name,
                                     std::vector<Status> statuses) {
  if (name) std::erase_if(statuses, [&](const Status& status) { return status.name != *name; });
  return statuses;
}

template <typename Display>
int watch(const Options& options, Display display) {
  for (bool is_first = true;; is_first = false) {
    const Answer answer = ask_manager(options.only_applications ? "status_app" : "status_all",
                                      nullptr, options.timeout_seconds);
    if (is_first && !answer.manager_found) return report_exchange(answer);
    bool is_shown = true;
    if (!answer.manager_found) {
      is_shown = display.show_that_nobody_answers();
    } else if (const StatusReply reply = parse_statuses(answer.bytes);
               answer.error == 0 && reply.complete) {  // or the next look shows it
      is_shown = display.show(only_those_named(options.name, reply.statuses));
    }
    if (!is_shown) return kFailed;
    (void)sleep(kSecondsBetweenLooks);
  }
}

}  // namespace

int run_watch(const Options& options) {
  return is_screen() && !options.json ? watch(options, Screen())
                                      : watch(options, Lines(options.json));
}

}  // namespace client
