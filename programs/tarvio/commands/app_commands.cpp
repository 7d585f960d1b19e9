#include "commands/app_commands.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

#include "manager/manager_client.h"
#include "manager/manager_reply.h"
#include "packages/packages.h"
#include "process/exit_status.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace client {

namespace {

struct AppCommand {
  Command command;
  const char* word;
  const char* request;
  const char* done;
};
constexpr std::array<AppCommand, 4> kAppCommands = {{
    {Command::kStart, "start", "start_app", "started "},
    {Command::kStop, "stop", "stop_app", "stopped "},
    {Command::kStartAll, "start-all", "start_all", "started "},
    {Command::kStopAll, "stop-all", "stop_all", "stopped "},
}};

const AppCommand& row_of(Command command) {
  return *std::find_if(kAppCommands.begin(), kAppCommands.end(),
                       [command](const AppCommand& row) { return row.command == command; });
}

// Whether the manager, which takes the first application whose name contains the given text, comes
// to the one that has just this name.
bool is_first_match(const std::string& name) {
  const Listing listing = list_packages(TQ_CATEGORY_APPLICATION, TQ_SUBCATEGORY_ANY, nullptr);
  const auto first = std::find_if(
      listing.packages.begin(), listing.packages.end(),
      [&](const Package& package) { return package.name.find(name) != std::string::npos; });
  return first != listing.packages.end() && first->name == name;
}

std::string success_line(const AppCommand& command, const std::optional<std::string>& name) {
  std::string line = command.done;
  if (!name) {
    line += "all applications";
  } else if (is_first_match(*name)) {
    line += *name;
  } else {
    line += "the first application whose name contains '" + *name + "'";
  }
  return printable(line) + '\n';
}

std::string message_of(int32_t code, bool with_name) {
  return with_name && code == EINVAL ? "no such application" : result_words(code);
}

void complain_about(const Result& result) {
  const std::string reason = result.message + " (" + std::to_string(result.code) + ")";
  if (!result.name) {
    complain(result.command + ": an attempt failed: " + reason);
    return;
  }
  const char* const remedy =
      result.code == EINVAL ? ": see 'tarvio list --category application'" : "";
  complain("cannot " + result.command + " '" + *result.name + "': " + reason + remedy);
}

void complain_about_reply(const std::string& bytes) {
  constexpr size_t kShown = 40;
  complain(bytes.empty() ? "the manager ended the connection without a result"
                         : "the manager's reply is no result: '" + bytes.substr(0, kShown) + "'");
}

int show(const AppCommand& command, const Result& result, bool json) {
  if (result.code != 0) complain_about(result);
  bool is_written = true;
  if (json) {
    is_written = print(result_json(result));
  } else if (result.code == 0) {
    is_written = print(success_line(command, result.name));
  }
  return is_written && result.code == 0 ? kDone : kFailed;
}

}  // namespace

int run_app_command(const Options& options) {
  const AppCommand& command = row_of(options.command);
  const Answer answer = ask_manager(command.request, options.name ? options.name->c_str() : nullptr,
                                    options.timeout_seconds);
  if (const int broken = report_exchange(answer); broken != kDone) return broken;
  const std::optional<int32_t> code = parse_result_code(answer.bytes);
  if (!code) {
    complain_about_reply(answer.bytes);
    return kFailed;
  }
  return show(command,
              {.command = command.word,
               .name = options.name,
               .code = *code,
               .message = message_of(*code, options.name.has_value())},
              options.json);
}

}  // namespace client
