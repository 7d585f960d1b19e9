#include "commands/applications/app_request.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <optional>
#include <vector>

#include "manager/app_text.h"
#include "manager/manager_client.h"
#include "manager/manager_reply.h"
#include "packages/package_listing.h"
#include "process/failure.h"
#include "tarvio/package.h"
#include "terminal/json.h"
#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace client {

std::vector<std::string> installed_applications() {
  const Listing listing = list_packages(TQ_CATEGORY_APPLICATION, TQ_SUBCATEGORY_ANY, nullptr);
  if (listing.code != 0 && !listing.lacks_directory) {
    throw Failure(listing.code, "cannot list the installed applications: " + listing.reason);
  }
  std::vector<std::string> names;
  for (const Package& package : listing.packages) names.push_back(package.name);
  return names;
}

namespace {

// The manager reads lines of at most so many bytes.
constexpr size_t kMaxName = 254;
// What a stop takes at most, unless its settings say otherwise, and a second more.
constexpr double kSecondsPerApplication = 16;
constexpr char kNoExactNames[] = "the running manager matches names by substring";

using Names = std::vector<std::string>;

// The one that the manager takes for a part of a name (oddity 90).
std::optional<std::string> first_match(const Names& names, const std::string& part) {
  const auto first = std::find_if(names.begin(), names.end(), [&](const std::string& name) {
    return name.find(part) != std::string::npos;
  });
  if (first == names.end()) return std::nullopt;
  return *first;
}

// None for an answer without a byte, which a manager gives to a word that it does not know.
std::optional<int32_t> ask_for_code(const char* command, const char* name, double seconds) {
  constexpr size_t kMaxShown = 40;
  const Answer answer = ask_manager(command, name, seconds);
  if (const std::string broken = broken_off(answer); !broken.empty()) {
    throw Failure(answer.error, broken);
  }
  if (answer.bytes.empty()) return std::nullopt;
  const std::optional<int32_t> code = parse_result_code(answer.bytes);
  if (code) return code;
  throw Failure(EPROTO,
                "the manager's reply is not a result: '" + answer.bytes.substr(0, kMaxShown) + "'");
}

int32_t code_of(const char* command, const char* name, double seconds) {
  const std::optional<int32_t> code = ask_for_code(command, name, seconds);
  if (code) return *code;
  throw Failure(EPROTO, "the manager closed the connection without a result");
}

// Packages may have come and gone since the manager listed them. So what it has a status of counts,
// too.
void expect_first_match(const AppRequest& request, const std::string& name, double seconds) {
  const Names installed = installed_applications();
  std::optional<std::string> first = first_match(installed, name);
  if (first == name) {
    for (const Status& status : ask_statuses("status_app", seconds)) {
      const bool is_installed =
          std::find(installed.begin(), installed.end(), status.name) != installed.end();
      if (!is_installed && status.name.find(name) != std::string::npos) first = status.name;
    }
  }
  if (first == name) return;
  throw Failure(EINVAL, std::string("cannot ") + request.verb + " '" + name +
                            "': " + kNoExactNames + ", and " +
                            (first ? "may find '" + *first + "' first"
                                   : "'" + name + "' is not an installed application") +
                            "; use --match to accept that, or update tarviod");
}

// Asking for all is to take longer the more applications there are: those that are installed, and
// those that are started and installed no more.
double seconds_for_all(const Names& installed, const Arguments& arguments) {
  const double seconds = arguments.timeout_seconds;
  if (arguments.has(arguments.command->timeout.option)) return seconds;
  const size_t known = ask_statuses("status_app", seconds).size();
  return seconds + kSecondsPerApplication * static_cast<double>(std::max(known, installed.size()));
}

// What came of a request for all.
struct All {
  int32_t code = 0;
  std::string missed = {};  // an application that the manager did not reach; empty for none
};

// The applications that starting and stopping all do not reach (oddity 93).
Names hidden_among(const Names& installed) {
  Names hidden;
  std::copy_if(installed.begin(), installed.end(), std::back_inserter(hidden),
               [&](const std::string& name) { return first_match(installed, name) != name; });
  return hidden;
}

void include(const std::string& name, const AppRequest& request, double seconds, All& all) {
  const std::optional<int32_t> code = ask_for_code(request.exact, name.c_str(), seconds);
  if (!code) {
    all.missed = name;
  } else if (*code != 0 && *code != EINVAL) {  // 22: installed since the manager started
    all.code = *code;
  }
}

std::string words_for(int32_t code) {
  if (code == EBUSY) return "it is still being stopped; try again";
  return code == runtime::kBadSettings ? "its settings have a mistake; see 'tarviod --check-config'"
                                       : result_words(code);
}

std::string message_of(const AppRequest& request, const Reached& reached) {
  if (!reached.end.empty()) return std::string(request.done) + ", but it has ended: " + reached.end;
  if (!reached.was_started.value_or(false)) return reason_of(reached);
  if (reached.state == runtime::AppState::kRunning) return "runs already";
  if (reached.state == runtime::AppState::kRestarting) return "is about to be restarted";
  return "was started before; whether it still runs is not known";
}

}  // namespace

Reached reach_app(const AppRequest& request, const std::string& name, bool is_part,
                  double seconds) {
  const std::string wanted =
      is_part ? first_match(installed_applications(), name).value_or(name) : name;
  if (const auto code = ask_for_code(request.exact, wanted.c_str(), seconds)) {
    return {.name = wanted, .code = *code};
  }
  if (!is_part) expect_first_match(request, name, seconds);
  return {.name = wanted, .code = code_of(request.part, name.c_str(), seconds), .is_exact = false};
}

void explain_start(const std::optional<ManagerState>& before, Reached& reached) {
  const std::optional<ManagerState> now = read_state();
  const AppFacts* const app = now ? now->find_app(reached.name) : nullptr;
  if (app == nullptr) return;
  const AppFacts* const was = before ? before->find_app(reached.name) : nullptr;
  reached.state = app->state;
  // The state may still be the one from before the start.
  reached.is_new_run = app->starts > (was == nullptr ? 0 : was->starts);
  if (!*reached.is_new_run) return;
  if (reached.code == 0 && app->has_failed()) reached.end = end_words(app->exit);
  if (reached.code != 0 && app->exit.is_not_run()) reached.reason = end_words(app->exit);
}

std::string reason_of(const Reached& reached) {
  if (!reached.reason.empty()) return reached.reason;
  return reached.code == EINVAL ? "no such application" : words_for(reached.code);
}

std::string doubt_about(const AppRequest& request, const Reached& reached) {
  if (reached.is_exact) return "";
  return std::string("cannot confirm that '") + reached.name + "' was " + request.done + ": " +
         kNoExactNames + " and may know other applications; update tarviod";
}

Result result_of(const AppRequest& request, const Reached& reached, const Arguments& arguments) {
  const bool was_started = reached.was_started.value_or(false);
  const std::string message = message_of(request, reached);
  Json json = {{"command", arguments.command->word},
               {"name", reached.name},
               {"exact", reached.is_exact},
               {"code", reached.code},
               {"message", message}};
  if (reached.was_started) json["was_started"] = *reached.was_started;
  if (!reached.end.empty()) json["ended"] = reached.end;
  Result result = {.json = text_of(json)};
  if (reached.code != 0) {
    result.status = kFailed;
    result.complaint = std::string("cannot ") + request.verb + " '" + reached.name +
                       "': " + message + " (" + std::to_string(reached.code) + ")";
    if (reached.code == EINVAL && reached.reason.empty())
      result.complaint += "; see 'tarvio list --category application'";
    return result;
  }
  if (!reached.end.empty()) {
    result.status = kFailed;
    result.complaint = "'" + reached.name + "' was " + message;
    return result;
  }
  result.text = printable(was_started ? reached.name + ' ' + message
                                      : std::string(request.done) + ' ' + reached.name) +
                '\n';
  result.complaint = doubt_about(request, reached);
  return result;
}

Result request_all(const AppRequest& request, const Arguments& arguments) {
  const Names installed = installed_applications();
  const double seconds = seconds_for_all(installed, arguments);
  All all = {.code = code_of(request.all, nullptr, seconds)};
  for (const std::string& name : hidden_among(installed)) {
    include(name, request, arguments.timeout_seconds, all);
  }
  const char* const word = arguments.command->word;
  const std::string message = words_for(all.code);
  Result result = {.json = text_of({{"command", word}, {"code", all.code}, {"message", message}})};
  if (all.code != 0) {
    result.complaint = std::string(word) + ": an application failed to " + request.verb + ": " +
                       message + " (" + std::to_string(all.code) + ")";
  } else if (!all.missed.empty()) {
    result.complaint = std::string(word) + ": '" + all.missed + "' was not " + request.done + ": " +
                       kNoExactNames + "; update tarviod";
  } else {
    result.text = std::string(request.done) + " all applications\n";
    return result;
  }
  result.status = kFailed;
  return result;
}

std::string application_name(const std::string& operand) {
  if (operand.empty()) throw UsageError("NAME must not be empty");
  if (operand.find_first_of("\r\n") != std::string::npos) {
    throw UsageError("NAME must not contain a line end");
  }
  if (operand.size() > kMaxName) {
    throw UsageError("NAME must not be longer than " + std::to_string(kMaxName) + " bytes");
  }
  return operand;
}

}  // namespace client
