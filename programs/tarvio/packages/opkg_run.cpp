#include "packages/opkg_run.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "base/chain.h"
#include "base/owners.h"
#include "process/child.h"
#include "process/failure.h"
#include "process/kernel_text.h"
#include "process/required_tools.h"
#include "process/text_pieces.h"
#include "tarvio/error.h"
#include "tarvio/list.h"
#include "tarvio/opkg.h"
#include "terminal/output.h"
#include "terminal/words.h"

namespace client {

namespace {

void append_option(std::string& line, const char* options) {
  if (options != nullptr) line.append(" ").append(options);
}

std::string quoted(std::string_view word) {
  std::string text = "'";
  for (const char character : word) {
    if (character == '\'') {
      text += "'\\''";
    } else {
      text += character;
    }
  }
  return text + "'";
}

constexpr int kCannotInstall = 3;  // the row of that message in the table of opkg's
constexpr std::string_view kStatusWord = "tarvio-status ";

// In a process of its own: the code, opkg's lines, and a last one with opkg's exit status as the
// shell has it. The library looks at opkg's words only (oddity 57), and takes a read error for
// their end.
std::string run(const std::string& opkg_line) {
  // opkg's last line may have no end.
  const std::string line = opkg_line + "; printf '\\n" + std::string(kStatusWord) + "%s\\n' $?";
  const tarvio::StringList lines(tq_list_create());
  const int code = lines == nullptr ? ENOMEM : tq_opkg_run_command(line.c_str(), lines.get());
  std::string result = std::to_string(code) + '\n';
  if (lines == nullptr) return result;
  for (const char* each : tarvio::Elements<char>(lines.get())) result.append(each).append("\n");
  return result;
}

// Empty when the lines do not end with it.
std::string take_status(std::vector<std::string>& lines) {
  if (lines.empty() || !lines.back().starts_with(kStatusWord)) return "";
  std::string status = lines.back().substr(kStatusWord.size());
  lines.pop_back();
  if (!lines.empty() && lines.back().empty()) lines.pop_back();
  return status;
}

// After any cause opkg says that it cannot install the package, which the library takes for a
// malformed one, since the last known line decides (oddity 58). An earlier one names the cause.
int cause_in(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    for (int row = 0; row < TQ_OPKG_MESSAGES; ++row) {
      const bool is_cause = opkgerr[row] != TQ_ERR_PACKAGE_OTHER && opkgerr[row] != ENOPKG;
      if (is_cause && line.find(opkgmes[row]) != std::string::npos) return row;
    }
  }
  return kCannotInstall;
}

void judge_words(OpkgRun& opkg) {
  opkg.message = result_words(opkg.code);
  if (opkg.code != TQ_ERR_PACKAGE_MALFORMED) return;
  const int cause = cause_in(opkg.lines);
  opkg.code = opkgerr[cause];
  opkg.message = cause == kCannotInstall ? "opkg cannot install it" : result_words(opkg.code);
  // Its text is that of another code (oddity 6).
  if (opkg.code == TQ_ERR_PACKAGE_NO_SPACE) opkg.message = "not enough space";
}

// Words of opkg that the library knows say more than its exit status.
void judge_status(const std::string& status, OpkgRun& opkg) {
  opkg.has_failed = status != "0";
  if (!opkg.has_failed || opkg.code != 0) return;
  opkg.code = EIO;
  opkg.message = status.empty() ? "the output of opkg could not be read to its end"
                                : "opkg failed with status " + status;
}

}  // namespace

std::string opkg_line(const OpkgCommand& command) {
  std::string line = "opkg";
  append_option(line, getenv("OPKG_OPTIONS"));
  append_option(line, command.force_options != nullptr ? command.force_options
                                                       : getenv("OPKG_FORCE_OPTIONS"));
  if (command.is_alone) line += " --nodeps";
  line.append(" ").append(command.word).append(" ").append(quoted(command.operand));
  const std::string root = root_of_packages();
  if (!root.empty()) line += " --offline-root=" + root;
  // Newer releases write their errors there, and the library judges standard output only.
  if (!command.is_listing) line += " 2>&1";
  return line;
}

OpkgRun run_opkg(const WorkDirectory& directory, const OpkgCommand& command, double seconds) {
  require_tools({"opkg"});
  const std::string line = opkg_line(command);
  OpkgRun opkg;
  try {
    const JobEnd end = run_job(
        directory, Rights::of_caller(), "opkg", [&line] { return run(line); }, seconds);
    opkg.lines = lines_of(end.result);
    opkg.errors = lines_of(end.errors);
    opkg.code = static_cast<int32_t>(strtol(opkg.lines.at(0).c_str(), nullptr, 10));
    opkg.lines.erase(opkg.lines.begin());
    const std::string status = take_status(opkg.lines);
    judge_words(opkg);
    judge_status(status, opkg);
  } catch (const Failure& failure) {
    opkg.code = failure.code();
    opkg.has_failed = true;
    opkg.message = failure.what();
    opkg.status = failure.status();
  }
  return opkg;
}

void show_words_of(const OpkgRun& run) {
  for (const auto* lines : {&run.lines, &run.errors}) {
    for (std::string line : *lines) {
      std::replace(line.begin(), line.end(), '\t', ' ');
      if (!line.empty()) complain("opkg: " + line);
    }
  }
}

}  // namespace client
