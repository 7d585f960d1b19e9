// tarvio-fleet rollout: a package for many boards, wave after wave.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "commands/arguments.h"
#include "expression.h"
#include "fleet/child_process.h"
#include "fleet/file_sha256.h"
#include "fleet_commands.h"
#include "inquiry.h"
#include "observer.h"
#include "process/work_directory.h"
#include "rollout.h"
#include "rollout_report.h"
#include "rollout_run.h"

namespace client {

namespace {

using fleet_tool::Expression;
using fleet_tool::kConfig;
using fleet_tool::kTo;
using fleet_tool::Observer;
using fleet_tool::Rollout;
using fleet_tool::RolloutReport;

constexpr int kDefaultAnswerSeconds = 1800;

constexpr Option kWave = {.name = "wave",
                          .value = "LIST",
                          .help =
                              "percent of the boards that have the package after each wave; "
                              "default 5%,25%,100%"};
constexpr Option kMaxFailures = {
    .name = "max-failures",
    .value = "N",
    .help = "go on until more than N boards have failed or gone away; default 0"};
constexpr Option kPause = {
    .name = "pause", .value = "SECONDS", .help = "wait so long between waves; default 0"};
constexpr Option kAnswerTimeout = {
    .name = "answer-timeout",
    .value = "SECONDS",
    .help = "a board that has not answered by then counts as gone; default 1800"};
constexpr Option kForce = {.name = "force", .help = "install as 'tarvio install --force' does"};
constexpr Option kFile = {.name = "file",
                          .value = "FILE",
                          .offer = Offer::kPackageFiles,
                          .help =
                              "a copy of what is at URL, which is not fetched then to learn "
                              "its size and SHA-256"};
constexpr Option kUpload = {
    .name = "upload",
    .value = "FILE",
    .offer = Offer::kPackageFiles,
    .help = "first send FILE, and FILE.minisig if there is one, to the URL of --to-url by PUT"};
constexpr Option kCaFile = {
    .name = "ca-file",
    .value = "FILE",
    .offer = Offer::kFiles,
    .help = "authorities of the servers at both URLs, in place of the system's"};
constexpr Option kToUrl = {.name = "to-url",
                           .value = "URL",
                           .help =
                               "where --upload sends to, a plain http:// as well: the boards "
                               "check what they fetch from URL"};
constexpr std::array kOptions = {kTo,   kWave,   kMaxFailures, kPause,  kAnswerTimeout, kForce,
                                 kFile, kUpload, kToUrl,       kCaFile, kConfig};

// Runs tarvio-transfer to its end. Throws a Failure.
void transfer(const std::vector<std::string>& words, const Arguments& arguments,
              RolloutReport& report) {
  std::vector<std::string> line = {"tarvio-transfer"};
  line.insert(line.end(), words.begin(), words.end());
  if (const std::string* const file = arguments.value_of(kCaFile)) {
    line.insert(line.end(), {"--ca-file", *file});
  }
  try {
    fleet::ChildProcess child(line, [&](std::string_view figures) {
      Json progress = Json::parse(figures, nullptr, false);
      if (!progress.is_object()) return;
      progress["step"] = words.front() == "put" ? "upload" : "download";
      report.progress("before the first wave", progress);
    });
    for (;;) {
      std::array<pollfd, fleet::ChildProcess::kFiles> files;
      child.list(files.data());
      (void)poll(files.data(), files.size(), -1);
      const std::optional<fleet::ChildEnd> end = child.step();
      if (!end) continue;
      if (end->status == 0) return;
      throw Failure(EIO, fleet::message_in(*end, line.front()));
    }
  } catch (const Failure&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw Failure(EIO, error.what());
  }
}

void upload(const std::string& file, const Arguments& arguments, RolloutReport& report) {
  const std::string& url = *arguments.value_of(kToUrl);
  transfer({"put", file, url}, arguments, report);
  const std::string signature = file + ".minisig";
  if (access(signature.c_str(), F_OK) == 0)
    transfer({"put", signature, url + ".minisig"}, arguments, report);
}

void measure(const std::string& file, Rollout& rollout) {
  const tarvio::Fd fd(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status = {};
  if (!fd.valid() || fstat(fd.get(), &status) != 0) {
    throw Failure::of_system("cannot read '" + file + "'");
  }
  rollout.size = static_cast<uint64_t>(status.st_size);
  try {
    rollout.sha256 = fleet::sha256_of(fd.get());
  } catch (const std::runtime_error& error) {
    throw Failure(EIO, "'" + file + "': " + error.what());
  }
}

void measure_what_is_at_url(Rollout& rollout, const Arguments& arguments, RolloutReport& report) {
  const WorkDirectory directory;
  const std::string file = directory.path() + "/package";
  transfer({"get", rollout.url, file}, arguments, report);
  measure(file, rollout);
}

// The size and the SHA-256 of the package, which is at the URL then.
void prepare(Rollout& rollout, const Arguments& arguments, RolloutReport& report) {
  if (const std::string* const file = arguments.value_of(kUpload)) {
    measure(*file, rollout);
    upload(*file, arguments, report);
  } else if (const std::string* const copy = arguments.value_of(kFile)) {
    measure(*copy, rollout);
  } else {
    measure_what_is_at_url(rollout, arguments, report);
  }
}

int number_of(const Arguments& arguments, const Option& option, int otherwise) {
  const std::string* const text = arguments.value_of(option);
  if (text == nullptr) return otherwise;
  const bool is_number = !text->empty() && text->size() <= 6 &&
                         text->find_first_not_of("0123456789") == std::string::npos;
  if (!is_number) throw UsageError(std::string(option.name) + " '" + *text + "' is not a number");
  return std::stoi(*text);
}

Rollout rollout_in(const Arguments& arguments) {
  Rollout rollout;
  rollout.url = arguments.operands.front();
  if (!rollout.url.starts_with("https://")) {
    throw UsageError("URL '" + rollout.url + "' does not begin with https://");
  }
  if (arguments.has(kUpload) != arguments.has(kToUrl)) {
    throw UsageError("--upload and --to-url are used together");
  }
  if (arguments.has(kUpload) && arguments.has(kFile)) {
    throw UsageError("--upload cannot be used with --file");
  }
  if (arguments.has(kToUrl) &&
      arguments.value_of(kToUrl)->find_first_of("?#") != std::string::npos) {
    throw UsageError(
        "--to-url with a '?' or '#' cannot be used: FILE.minisig is sent to URL.minisig");
  }
  rollout.to = *arguments.value_of(kTo);
  rollout.max_failures = number_of(arguments, kMaxFailures, 0);
  rollout.pause_seconds = arguments.seconds_of(kPause, 0);
  rollout.answer_seconds = arguments.seconds_of(kAnswerTimeout, kDefaultAnswerSeconds);
  rollout.is_forced = arguments.has(kForce);
  return rollout;
}

Result run(const Arguments& arguments) {
  Rollout rollout = rollout_in(arguments);
  const std::string* const list = arguments.value_of(kWave);
  const std::vector<int> percents =
      fleet_tool::percents_in(list == nullptr ? "5%,25%,100%" : *list);
  const Expression expression(rollout.to);
  const fleet_tool::Settings settings = fleet_tool::settings_in(arguments);
  RolloutReport report(arguments.has(kJson), arguments.has(kQuiet));
  Result nobody = {.status = kNoMatch, .complaint = "no such board is online"};
  // Nothing is sent or fetched in vain. That may take so long that the broker gives up a connection
  // nobody looks after, and that other boards are online after it.
  if (const Observer before(settings, arguments.timeout_seconds);
      expression.online_among(before.boards()).empty()) {
    return nobody;
  }
  prepare(rollout, arguments, report);
  Observer observer(settings, arguments.timeout_seconds, Observer::Needs::kBoardsAndRollouts);
  const std::vector<std::string> boards = expression.online_among(observer.boards());
  if (boards.empty()) return nobody;
  rollout.id = fleet_tool::new_id();
  rollout.operator_name = settings.operator_name;
  rollout.started = std::time(nullptr);
  rollout.waves = fleet_tool::waves_of(boards, percents);
  rollout.offline = expression.offline_among(observer.boards());
  rollout.left_out = boards.size() - rollout.board_count();
  return {.status = fleet_tool::RolloutRun(observer, rollout, report).run()};
}

}  // namespace

constexpr Command kRolloutCommand = {
    .word = "rollout",
    .operands = {.name = "URL",
                 .min = 1,
                 .max = 1,
                 .missing = "the URL of the package",
                 .help = fleet_tool::kExpressionHelp},
    .options = kOptions,
    .timeout = fleet_tool::kBrokerTimeout,
    .summary = "install a package on many boards, wave after wave",
    .description =
        "Has the boards that are meant and online fetch the package at URL, which begins with "
        "https://, and URL.minisig, and install it. The next wave begins when all boards of the "
        "one before have answered, and no wave begins once too many boards have failed or gone "
        "away. Other operators see the rollout with 'tarvio-fleet history'. What was interrupted, "
        "or stopped, goes on with 'tarvio-fleet resume'.",
    .statuses = fleet_tool::kFleetStatuses,
    .run = run,
};

}  // namespace client
