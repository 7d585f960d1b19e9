#include "commands/status_command.h"

#include <algorithm>
#include <string>
#include <vector>

#include "commands/watch_command.h"
#include "manager/manager_client.h"
#include "manager/manager_reply.h"
#include "manager/status_table.h"
#include "process/exit_status.h"
#include "tarvio/status.h"
#include "terminal/json.h"
#include "terminal/output.h"

namespace client {

namespace {

int exit_status_of(int32_t state) {
  switch (state) {
    case TQ_STATE_NORMAL:
      return kDone;
    case TQ_STATE_ERROR:
      return kStateError;
    default:
      return kStateWarning;
  }
}

// A reply that is not whole tells nothing about what it does not hold.
int show_all(const std::vector<Status>& statuses, bool is_whole, bool json) {
  if (statuses.empty() && !is_whole) return kFailed;
  if (json) return print(statuses_json(statuses)) ? kDone : kFailed;
  if (!statuses.empty()) return print(table_of(statuses)) ? kDone : kFailed;
  complain("no statuses");
  return kDone;
}

int show_one(const std::vector<Status>& statuses, const std::string& name, bool is_whole,
             bool json) {
  const auto status = std::find_if(statuses.begin(), statuses.end(),
                                   [&](const Status& each) { return each.name == name; });
  if (status == statuses.end()) {
    if (!is_whole) return kFailed;
    complain("no status of '" + name + "': not started, or not the whole name of an application");
    return kNoStatus;
  }
  if (!print(json ? status_json(*status) : table_of({*status}))) return kFailed;
  return exit_status_of(status->state);
}

}  // namespace

int run_status(const Options& options) {
  if (options.watch) return run_watch(options);
  const Answer answer = ask_manager(options.only_applications ? "status_app" : "status_all",
                                    nullptr, options.timeout_seconds);
  if (!answer.manager_found) return report_exchange(answer);
  const StatusReply reply = parse_statuses(answer.bytes);
  const bool is_whole = answer.error == 0 && reply.complete;
  const int shown = options.name ? show_one(reply.statuses, *options.name, is_whole, options.json)
                                 : show_all(reply.statuses, is_whole, options.json);
  if (is_whole) return shown;
  if (report_exchange(answer) == kDone) {
    complain("the manager's reply is cut short or garbled: there may be more statuses");
  }
  return kFailed;
}

}  // namespace client
