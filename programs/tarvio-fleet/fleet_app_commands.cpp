// tarvio-fleet start, stop and restart: an application of many boards.
#include <array>
#include <string>
#include <vector>

#include "commands/arguments.h"
#include "expression.h"
#include "fleet_commands.h"
#include "inquiry.h"
#include "observer.h"
#include "terminal/output.h"

namespace client {

namespace {

using fleet_tool::BoardOutcome;
using fleet_tool::Expression;
using fleet_tool::Inquiry;
using fleet_tool::kConfig;
using fleet_tool::kTo;
using fleet_tool::Observer;
using tarvio::Deadline;

constexpr double kAnswerSeconds = 60;
constexpr size_t kAtOnce = 1000;
constexpr Option kAnswerTimeout = {
    .name = "answer-timeout",
    .value = "SECONDS",
    .help = "give up a board that has not answered by then; default 60, 0 waits forever"};
constexpr std::array kOptions = {kTo, kAnswerTimeout, kConfig};

Result run(const Arguments& arguments) {
  const Expression expression(*arguments.value_of(kTo));
  Observer observer(fleet_tool::settings_in(arguments), arguments.timeout_seconds);
  const std::vector<std::string> boards = expression.online_among(observer.boards());
  if (boards.empty()) {
    return {
        .status = kNoMatch, .json = text_of(Json::array()), .complaint = "no such board is online"};
  }
  const bool is_json = arguments.has(kJson);
  Result result;
  Json json = Json::array();
  const std::vector<std::string> offline = expression.offline_among(observer.boards());
  if (!offline.empty() && !is_json) print(fleet_tool::offline_words(offline) + "\n");
  for (const std::string& board : offline) {
    json.push_back({{"name", board}, {"state", "offline"}, {"message", "it was not asked"}});
  }
  Inquiry inquiry(
      observer,
      {.id_for = [id = fleet_tool::new_id()](const std::string&) { return id; },
       .command = arguments.command->word,
       .arguments = {{"app", arguments.operands.front()}},
       .seconds = arguments.seconds_of(kAnswerTimeout, kAnswerSeconds),
       .at_once = kAtOnce},
      boards, {.ended = [&](const BoardOutcome& outcome) {
        if (!is_json) print(outcome.words() + "\n");
        json.push_back(
            {{"name", outcome.board}, {"state", outcome.state}, {"message", outcome.message}});
        if (outcome.is_done()) return;
        if (outcome.state != fleet_tool::kNoAnswer) {
          result.status = kFailed;
        } else if (result.status == kDone) {
          result.status = kTimeout;
        }
      }});
  while (inquiry.step(Deadline::never())) {
  }
  result.json = text_of(json);
  return result;
}

constexpr Operands kApplication = {.name = "APP",
                                   .min = 1,
                                   .max = 1,
                                   .missing = "the name of the APPlication",
                                   .help = fleet_tool::kExpressionHelp};

constexpr Command command_of(const char* word, const char* summary, const char* description) {
  return {.word = word,
          .operands = kApplication,
          .options = kOptions,
          .timeout = fleet_tool::kBrokerTimeout,
          .summary = summary,
          .description = description,
          .statuses = fleet_tool::kFleetStatuses,
          .run = run};
}

}  // namespace

constexpr Command kFleetStartCommand =
    command_of("start", "start an application on many boards",
               "Starts an application on all boards that are meant and online, and says what each "
               "has answered.");
constexpr Command kFleetStopCommand =
    command_of("stop", "stop an application on many boards",
               "Stops an application on all boards that are meant and online, and says what each "
               "has answered.");
constexpr Command kFleetRestartCommand =
    command_of("restart", "restart an application on many boards",
               "Restarts an application on all boards that are meant and online, and says what "
               "each has answered.");

}  // namespace client
