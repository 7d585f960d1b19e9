// tarvio logs
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/deadline.h"
#include "base/line_cutter.h"
#include "base/owners.h"
#include "commands/applications/app_request.h"
#include "commands/commands.h"
#include "manager/log_lines.h"
#include "manager/manager_reply.h"
#include "manager/manager_state.h"
#include "process/child.h"
#include "process/directory_watch.h"
#include "process/failure.h"
#include "process/paths.h"
#include "process/required_tools.h"
#include "process/work_directory.h"
#include "tarvio/conf.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

constexpr Option kLines = {
    .name = "lines", .letter = 'n', .value = "N", .help = "the last N lines; default 100"};
constexpr Option kFollow = {
    .name = "follow", .letter = 'f', .help = "keep running and print each line that comes"};
constexpr std::array kOptions = {kLines, kFollow};

constexpr size_t kDefaultLines = 100;
// Where rsyslog writes what applications print, if they have a file of their own; where BusyBox and
// rsyslog write everything.
constexpr std::array kLogFiles = {"/var/log/applications", "/var/log/messages", "/var/log/syslog"};
constexpr char kManagerConfig[] = "/etc/tarvio/tarviod.conf";

constexpr char kNoLines[] = "no such lines";

struct Request {
  std::vector<std::string> idents;
  size_t lines;
  bool is_json;
};

// The manager logs under the library's name, and under its own what a supervisor passes on for it.
constexpr char kManager[] = "tarviod";
constexpr std::array kManagerIdents = {"tarvio", kManager};

std::vector<std::string> idents_of(const std::string& name) {
  if (name == kManager) return {kManagerIdents.begin(), kManagerIdents.end()};
  return {name};
}

std::vector<std::string> all_idents() {
  std::vector<std::string> names = installed_applications();
  if (const std::optional<ManagerState> state = read_state()) {
    for (const AppFacts& app : state->apps) names.push_back(app.name);
  }
  names.insert(names.end(), kManagerIdents.begin(), kManagerIdents.end());
  return names;
}

size_t lines_in(const Arguments& arguments) {
  const std::string* const given = arguments.value_of(kLines);
  if (given == nullptr) return kDefaultLines;
  const std::optional<int32_t> count = parse_number(*given);
  if (!count || *count < 0) throw UsageError("'" + *given + "' is not a number of lines");
  return static_cast<size_t>(*count);
}

Request request_in(const Arguments& arguments) {
  const size_t lines = lines_in(arguments);
  return {.idents = arguments.operands.empty()
                        ? all_idents()
                        : idents_of(application_name(arguments.operands.front())),
          .lines = lines,
          .is_json = arguments.has(kJson)};
}

std::optional<Ident> wanted_ident(const Request& request, std::string_view line) {
  const std::optional<Ident> ident = ident_of(line);
  const auto is_it = [&](const std::string& name) { return ident->name == name; };
  const bool is_wanted = ident && std::any_of(request.idents.begin(), request.idents.end(), is_it);
  return is_wanted ? ident : std::nullopt;
}

Json json_of(const Ident& ident, std::string_view line) {
  return {{"name", ident.name}, {"pid", ident.pid ? Json(*ident.pid) : Json()}, {"line", line}};
}

// Thrown when the output cannot be written, which is reported already.
struct OutputEnded {};

// Prints a line that came just now.
void print_now(const Request& request, std::string_view line) {
  const std::optional<Ident> ident = wanted_ident(request, line);
  if (!ident) return;
  const std::string text =
      request.is_json ? line_of(json_of(*ident, line)) : printable(line) + '\n';
  if (!print(text)) throw OutputEnded();
}

// The last lines that are wanted.
class Lines {
 public:
  explicit Lines(const Request& request) : request_(request) {}

  void add(std::string_view line) {
    if (!wanted_ident(request_, line)) return;
    has_any_ = true;
    lines_.emplace_back(line);
    if (lines_.size() > request_.lines) lines_.pop_front();
  }
  [[nodiscard]] bool has_any() const { return has_any_; }

  [[nodiscard]] Result result() const {
    Result result;
    Json json = Json::array();
    for (const std::string& line : lines_) {
      result.text += printable(line) + '\n';
      json.push_back(json_of(*ident_of(line), line));
    }
    result.json = text_of(json);
    return result;
  }
  void print_all() const {
    for (const std::string& line : lines_) print_now(request_, line);
  }

 private:
  const Request& request_;
  bool has_any_ = false;
  std::deque<std::string> lines_;
};

// The file itself, where a link leads to it.
std::string real_path(const std::string& path) {
  const tarvio::CString real(realpath(path.c_str(), nullptr));
  return real == nullptr ? path : real.get();
}

// That of the manager's configuration comes first, unless it is one of the others.
std::vector<std::string> log_files() {
  const tarvio::Conf config(tq_conf_open2(kManagerConfig));
  const std::string set = tq_conf_read(config.get(), "log_file");
  std::vector<std::string> files;
  if (!set.empty() && std::find(kLogFiles.begin(), kLogFiles.end(), set) == kLogFiles.end()) {
    files.push_back(set);
  }
  files.insert(files.end(), kLogFiles.begin(), kLogFiles.end());
  return files;
}

// One place where lines may be, and what it holds.
struct Place {
  Place(const std::string& path, const Request& request) : name(path), file(path), lines(request) {
    (void)read();
  }

  bool read() {
    error = file.read_new([this](std::string_view line) { lines.add(line); }) ? 0 : errno;
    return error == 0;
  }
  [[nodiscard]] bool has_lines() const { return error == 0 && lines.has_any(); }
  [[nodiscard]] bool is_unreadable() const { return error != 0 && error != ENOENT; }
  [[nodiscard]] std::string words() const {
    return name + " (" + (error == 0 ? kNoLines : strerror(error)) + "), ";
  }

  std::string name;
  LogFile file;
  Lines lines;
  int error = 0;
};

constexpr unsigned kSecondsBetweenLooks = 1;

// The first one that can be read, waiting for it.
Place& await_place(std::deque<Place>& places) {
  while (true) {
    const auto place =
        std::find_if(places.begin(), places.end(), [](Place& each) { return each.read(); });
    if (place != places.end()) return *place;
    (void)sleep(kSecondsBetweenLooks);
  }
}

// Until a signal ends the process.
[[noreturn]] void follow(Place& place, const Request& request) {
  const DirectoryWatch watch(directory_of(real_path(place.name)),
                             IN_MODIFY | IN_CREATE | IN_MOVED_TO);
  place.lines.print_all();
  while (true) {
    (void)place.file.read_new([&](std::string_view line) { print_now(request, line); });
    (void)watch.wait(tarvio::Deadline::never());
  }
}

void read_journal(const Request& request, bool follows, const LineSink& sink) {
  require_tools({"journalctl"});
  std::vector<std::string> words = {
      "journalctl", "-q", "--no-pager", "-o", "short", "-n", std::to_string(request.lines)};
  if (follows) words.emplace_back("-f");
  for (const std::string& ident : request.idents) words.insert(words.end(), {"-t", ident});
  const WorkDirectory directory;
  tarvio::LineCutter cutter(tarvio::LineEnd::kLineFeed);
  execute(directory, Rights::of_caller(), words, 0,
          [&](std::string_view piece) { cut_lines(cutter, piece, sink); });
}

// What the journal holds.
struct Journal {
  explicit Journal(const Request& request) : lines(request) {
    try {
      read_journal(request, false, [this](std::string_view line) { lines.add(line); });
    } catch (const Failure& failure) {
      why = failure.what();
    }
  }

  [[nodiscard]] std::string words() const {
    return "the journal (" + (why.empty() ? kNoLines : why) + ')';
  }

  Lines lines;
  std::string why;  // why it cannot be read; empty when it can
};

bool any_unreadable(const std::deque<Place>& places) {
  return std::any_of(places.begin(), places.end(),
                     [](const Place& place) { return place.is_unreadable(); });
}

Result nothing_in(const std::deque<Place>& places, const Journal& journal) {
  Result result = {.complaint = "no lines found; looked in "};
  for (const Place& place : places) result.complaint += place.words();
  result.complaint += journal.words();
  // They may be in one that cannot be read.
  result.status = any_unreadable(places) ? kFailed : kNoMatch;
  if (result.status == kNoMatch) result.json = text_of(Json::array());
  return result;
}

Result print_lines(const Request& request) {
  std::deque<Place> places;
  for (const std::string& path : log_files()) {
    const Place& place = places.emplace_back(path, request);
    if (place.has_lines()) return place.lines.result();
  }
  const Journal journal(request);
  return journal.lines.has_any() ? journal.lines.result() : nothing_in(places, journal);
}

// Where lines come: in the place that has some, else in the first one that there is.
Result follow_lines(const Request& request) {
  std::deque<Place> places;
  for (const std::string& path : log_files()) {
    Place& place = places.emplace_back(path, request);
    if (place.has_lines()) follow(place, request);
  }
  const Journal journal(request);
  const auto is_there = [](const Place& place) { return place.error == 0; };
  const auto there = std::find_if(places.begin(), places.end(), is_there);
  if (!journal.lines.has_any() && there != places.end()) follow(*there, request);
  if (!journal.why.empty() && any_unreadable(places)) return nothing_in(places, journal);
  if (!journal.why.empty()) follow(await_place(places), request);
  read_journal(request, true, [&](std::string_view line) { print_now(request, line); });
  return {
      .status = kFailed,
      .complaint = "cannot follow the journal: journalctl has ended; see why with 'journalctl -f'"};
}

Result run(const Arguments& arguments) {
  try {
    const Request request = request_in(arguments);
    return arguments.has(kFollow) ? follow_lines(request) : print_lines(request);
  } catch (const OutputEnded&) {
    return {.status = kFailed};
  }
}

}  // namespace

constexpr Command kLogsCommand = {
    .word = "logs",
    .operands = {.name = "NAME", .max = 1, .offer = Offer::kApplications},
    .options = kOptions,
    .timeout = kNoTimeout,
    .summary = "print what applications have written to the system log",
    .description =
        "Prints the last lines of the application with exactly this NAME, of the manager for the "
        "NAME tarviod, or of all applications and the manager, from the first of these "
        "that has some: the log_file of /etc/tarvio/tarviod.conf, /var/log/applications, "
        "/var/log/messages, /var/log/syslog, the journal. A file that is rotated is followed into "
        "the new one; without any of them, the first one that comes is.",
    .statuses = "0 done, 1 failed, or a log cannot be read; 12 no lines",
    .run = run,
};

}  // namespace client
