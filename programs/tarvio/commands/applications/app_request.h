// What the commands that start and stop applications share.
#ifndef TARVIO_CLIENT_COMMANDS_APPLICATIONS_APP_REQUEST_H
#define TARVIO_CLIENT_COMMANDS_APPLICATIONS_APP_REQUEST_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "commands/arguments.h"
#include "manager/manager_state.h"

namespace client {

// A request in the words of the manager, and in words for people.
struct AppRequest {
  const char* exact;  // with a whole name; an older manager does not know it
  const char* part;   // by contract, with a part of a name
  const char* all;
  const char* verb;
  const char* done;
};

inline constexpr AppRequest kStartApp = {.exact = "start_exact",
                                         .part = "start_app",
                                         .all = "start_all",
                                         .verb = "start",
                                         .done = "started"};
inline constexpr AppRequest kStopApp = {.exact = "stop_exact",
                                        .part = "stop_app",
                                        .all = "stop_all",
                                        .verb = "stop",
                                        .done = "stopped"};

inline constexpr Option kMatch = {
    .name = "match", .help = "take the first application whose name contains NAME, from Z to A"};
inline constexpr std::array kMatchOptions = {kMatch};

// The application that a request came to.
struct Reached {
  std::string name;
  int32_t code = 0;      // the manager's result
  bool is_exact = true;  // false: by a part of its name, so that it may have been another one
  // Of a start: whether it counted as started before, so that nothing was done (oddity 95).
  std::optional<bool> was_started = {};
  // Of a start, as the manager's figures say: its state, and whether it was run once more.
  std::optional<runtime::AppState> state = {};
  std::optional<bool> is_new_run = {};
  // Of a start that failed: which step did, and why; empty when that is not known.
  std::string reason = {};
  // Of a start: how it has ended already; empty as far as is known.
  std::string end = {};
};

// Throws a Failure when there is no result, and when an older manager would come to another
// application. A name is a part of one only when that is wanted.
Reached reach_app(const AppRequest& request, const std::string& name, bool is_part, double seconds);

// What the manager's figures say of a start, against those before it.
void explain_start(const std::optional<ManagerState>& before, Reached& reached);

// Why the manager's result is not success.
std::string reason_of(const Reached& reached);
// What cannot be known of a success; empty for an exact one.
std::string doubt_about(const AppRequest& request, const Reached& reached);

// What the command prints.
Result result_of(const AppRequest& request, const Reached& reached, const Arguments& arguments);

// In the order in which the manager looks for them. Throws a Failure.
std::vector<std::string> installed_applications();

// Starts or stops all.
Result request_all(const AppRequest& request, const Arguments& arguments);

// The operand, when the manager would read it as it stands. Throws UsageError.
std::string application_name(const std::string& operand);

}  // namespace client

#endif
