// The tools that the device needs, each tried with the library's own calls where these need no
// flash memory.
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/owners.h"
#include "base/pipe.h"
#include "commands/doctor/finding.h"
#include "process/child.h"
#include "process/failure.h"
#include "process/paths.h"
#include "process/required_tools.h"
#include "process/text_pieces.h"
#include "tarvio/archive.h"
#include "tarvio/nand.h"
#include "terminal/words.h"

namespace client {

namespace {

struct Trial {
  // In the work directory: returns what is wrong though it works, mostly nothing; throws a Failure.
  std::string (*run)() = nullptr;
  const char* what = "";  // that it cannot do
  const char* remedy = "";
};

struct Tool {
  const char* name;
  std::string_view options = {};  // letters of options that it must know
  Trial trial = {};
};

constexpr char kSample[] = "sample";
constexpr std::string_view kContent = "tarvio\n";

void make_sample() {
  const tarvio::File file(fopen(kSample, "we"));
  if (file == nullptr || !tarvio::write_all(fileno(file.get()), kContent)) {
    throw Failure::of_system("cannot write in the work directory");
  }
}

// The library judges what tools print; what counts here is what they leave.
std::string check_made(int code, const std::string& file, uint64_t bytes) {
  if (code != 0) throw Failure(code, result_words(code));
  if (size_of_file(file) < bytes) throw Failure(EIO, "no result");
  return "";
}

std::string try_ar() {
  make_sample();
  const char* const files[] = {kSample};
  (void)check_made(tq_archive_ar("sample.a", 1, files), "sample.a", kContent.size());
  (void)remove(kSample);
  return check_made(tq_extract_from_ar("sample.a", kSample), kSample, kContent.size());
}

std::string try_tar() {
  make_sample();
  const char* const files[] = {kSample};
  (void)check_made(tq_archive_tgz("sample.tar.gz", 1, files), "sample.tar.gz", 1);
  (void)remove(kSample);
  return check_made(tq_extract_from_tgz("sample.tar.gz", kSample), kSample, kContent.size());
}

std::string try_dd() {
  make_sample();
  return check_made(tq_dd(kSample, "copy", 1, static_cast<int>(kContent.size())), "copy",
                    kContent.size());
}

std::string try_mkfs() {
  make_sample();
  if (mkdir("tree", 0700) != 0 || rename(kSample, "tree/sample") != 0) {
    throw Failure::of_system("cannot write in the work directory");
  }
  return check_made(tq_mkfs_jffs2("tree", "image"), "image", 1);
}

// The library takes the free space from the fourth word of the first row, whatever the status is. A
// row that is wrapped has none there.
std::string try_df() {
  constexpr int kRow = 2;
  constexpr int kWordsBefore = 3;
  tarvio::Stream output(popen("df", "re"));
  if (output == nullptr) throw Failure::of_system("cannot start a process");
  std::string row;
  std::array<char, 1024> line = {};
  for (int number = 1; fgets(line.data(), line.size(), output.get()) != nullptr; ++number) {
    if (number == kRow) row = line.data();
  }
  const int status = pclose(output.release());
  std::string_view words = row;
  for (int word = 0; word < kWordsBefore; ++word) (void)take_word(words);
  if (!parse_number<uint64_t>(take_word(words))) {
    throw Failure(EIO, "no size where GNU df has it");
  }
  return status == 0 ? "" : "reports free space, but fails";
}

constexpr std::array<Tool, 11> kTools = {{
    {.name = "opkg"},
    {.name = "ar",
     .trial = {try_ar, "make and read an archive",
               "install the ar of GNU binutils: BusyBox's does not find './control.tar.gz'"}},
    {.name = "tar",
     .trial = {try_tar, "make and read a compressed archive", "install GNU tar and gzip"}},
    {.name = "gzip"},
    {.name = "df",
     .trial = {try_df, "report free space",
               "install the df of coreutils: BusyBox's wraps rows of long device names"}},
    {.name = "dd", .trial = {try_dd, "copy a file", "install the dd of coreutils"}},
    {.name = "nanddump", .options = "bo"},
    {.name = "nandwrite"},
    {.name = "flash_erase"},
    {.name = "flash_eraseall"},
    {.name = "mkfs.jffs2",
     .trial = {try_mkfs, "make a JFFS2 image", "install the mkfs.jffs2 of mtd-utils"}},
}};

// The first word that looks like one: "v1.35.0", "2.40".
std::string version_in(std::string_view line) {
  for (auto word = take_word(line); !word.empty(); word = take_word(line)) {
    if (word.starts_with('v')) word.remove_prefix(1);
    const std::string_view number = word.substr(0, word.find_first_not_of("0123456789."));
    const bool has_digit =
        !number.empty() && std::isdigit(static_cast<unsigned char>(number.front())) != 0;
    if (has_digit && number.find('.') != std::string_view::npos) return std::string(number);
  }
  return "";
}

// Empty when there is none.
std::string line_of_version(std::string_view words) {
  const std::vector<std::string> lines = lines_of(words);
  const auto line = std::find_if(lines.begin(), lines.end(),
                                 [](const std::string& each) { return !version_in(each).empty(); });
  return line == lines.end() ? "" : *line;
}

ChildEnd ask_tool(const Examination& examination, const Tool& tool) {
  std::vector<std::string> words = {path_of_tool(tool.name)};
  for (const char letter : tool.options) words.push_back(std::string("-") + letter);
  words.emplace_back("--version");
  return run_tool(*examination.directory, Rights::of_caller(), words, examination.seconds);
}

// Tools say that of an option: "invalid option -- 'b'", "invalid option -- b".
bool refuses(const std::string& words, char letter) {
  return words.find(std::string("-- '") + letter + '\'') != std::string::npos ||
         words.find(std::string("-- ") + letter + '\n') != std::string::npos;
}

Finding failed(const Tool& tool, const std::string& found, const std::string& remedy) {
  return {.check = tool.name, .status = CheckStatus::kFailed, .found = found, .remedy = remedy};
}

Finding warning(const Tool& tool, const std::string& found, const std::string& command) {
  return {.check = tool.name,
          .status = CheckStatus::kWarning,
          .found = found,
          .remedy = "run '" + command + "', and fix what it reports"};
}

// Also without a release, as some builds of BusyBox are: "df: unrecognized option '--version'",
// "usage: gzip FILE".
bool explains_usage(const std::string& words, const std::string& name) {
  const std::vector<std::string> lines = lines_of(words);
  return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
    return line.find(name) != std::string::npos &&
           (line.find("sage:") != std::string::npos || line.find(" option ") != std::string::npos);
  });
}

std::string last_line_of(const std::string& words) {
  const std::vector<std::string> lines = lines_of(words);
  return lines.empty() ? "" : lines.back();
}

// What kept it from running at all; empty when it ran.
std::string reason_not_run(const ChildEnd& end) {
  constexpr int kNotExecutable = 126;
  constexpr int kNotFound = 127;  // the program, or the interpreter of a script
  constexpr int kSignalled = 128;
  if (end.is_late) return "was stopped, because it did not end in time";
  // Old tools exit with 255 when they do not know an option.
  if (end.status > kSignalled && end.status < kSignalled + NSIG) {
    return "was killed by signal " + std::to_string(end.status - kSignalled);
  }
  if (end.status != kNotExecutable && end.status != kNotFound) return "";
  const std::string line = last_line_of(end.errors);
  return "cannot be run" + (line.empty() ? "" : ": " + line);
}

// None when it does what it is needed for without a complaint, as far as that can be tried.
std::optional<Finding> try_out(const Examination& examination, const Tool& tool,
                               const std::string& path) {
  if (tool.trial.run == nullptr) return std::nullopt;
  try {
    const JobEnd end = run_job(*examination.directory, Rights::of_caller(), tool.name,
                               tool.trial.run, examination.seconds);
    if (end.result.empty()) return std::nullopt;
    const std::string line = last_line_of(end.errors);
    return warning(tool, path + ' ' + end.result + (line.empty() ? "" : ": " + line), tool.name);
  } catch (const Failure& failure) {
    return failed(tool, path + " cannot " + tool.trial.what + ": " + failure.what(),
                  tool.trial.remedy);
  }
}

// Of a tool that runs. One that only fails may do so whatever it is asked, unless a trial has shown
// that it does not.
Finding report_release(const Tool& tool, const std::string& path, const ChildEnd& end) {
  const std::string version = line_of_version(end.errors);
  if (!version.empty()) return {.check = tool.name, .found = path + ": " + version};
  if (end.status == 0 || tool.trial.run != nullptr || explains_usage(end.errors, tool.name)) {
    return {.check = tool.name, .found = path + ", which does not report its release"};
  }
  const std::string line = last_line_of(end.errors);
  return warning(tool,
                 path + " cannot be tried: " +
                     (line.empty() ? "exit status " + std::to_string(end.status) : line),
                 std::string(tool.name) + " --version");
}

Finding check_tool(const Examination& examination, const Tool& tool) {
  const std::string path = path_of_tool(tool.name);
  if (path.empty()) return failed(tool, "not on PATH", kRemedyForMissingTool);
  if (examination.directory == nullptr) {
    return failed(tool, path + ", which needs a work directory to be checked",
                  "see 'work directory' above");
  }
  const ChildEnd end = ask_tool(examination, tool);
  if (const std::string reason = reason_not_run(end); !reason.empty()) {
    return failed(tool, path + ' ' + reason, "replace it with one that runs on this device");
  }
  for (const char letter : tool.options) {
    if (!refuses(end.errors, letter)) continue;
    return failed(tool, path + " has no option -" + letter + ", as older releases have",
                  "put a script of its name before it on PATH that turns -b into --bb=skipbad and "
                  "-o into --omitoob");
  }
  const std::optional<Finding> complaint = try_out(examination, tool, path);
  return complaint ? *complaint : report_release(tool, path, end);
}

}  // namespace

std::string version_of_tool(const Examination& examination, const std::string& name) {
  if (examination.directory == nullptr || path_of_tool(name).empty()) return "";
  const Tool tool = {.name = name.c_str()};
  return version_in(line_of_version(ask_tool(examination, tool).errors));
}

Findings check_tools(const Examination& examination) {
  Findings findings;
  for (const Tool& tool : kTools) {
    try {
      findings.push_back(check_tool(examination, tool));
    } catch (const Failure& failure) {
      findings.push_back(not_checked(tool.name, failure));
    }
  }
  return findings;
}

}  // namespace client
