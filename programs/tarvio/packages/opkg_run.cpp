#include "packages/opkg_run.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "base/chain.h"
#include "base/owners.h"
#include "packages/installed.h"
#include "process/child.h"
#include "process/failure.h"
#include "process/text_pieces.h"
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

// In a process of its own: the code, and opkg's lines.
std::string run(const std::string& line) {
  const tarvio::StringList lines(tq_list_create());
  const int code = lines == nullptr ? ENOMEM : tq_opkg_run_command(line.c_str(), lines.get());
  std::string result = std::to_string(code) + '\n';
  if (lines == nullptr) return result;
  for (const char* each : tarvio::Elements<char>(lines.get())) result.append(each).append("\n");
  return result;
}

}  // namespace

std::string opkg_line(const OpkgCommand& command) {
  std::string line = "opkg";
  append_option(line, getenv("OPKG_OPTIONS"));
  append_option(line, command.force_options != nullptr ? command.force_options
                                                       : getenv("OPKG_FORCE_OPTIONS"));
  line.append(" ").append(command.word).append(" ").append(quoted(command.operand));
  const std::string root = root_of_packages();
  if (!root.empty()) line += " --offline-root=" + root;
  // Newer releases write their errors there, and the library judges standard output only.
  if (!command.is_listing) line += " 2>&1";
  return line;
}

OpkgRun run_opkg(const WorkDirectory& directory, const OpkgCommand& command, double seconds) {
  OpkgRun opkg;
  try {
    const JobEnd end = run_job(
        directory, "opkg", [&] { return run(opkg_line(command)); }, seconds);
    opkg.lines = lines_of(end.result);
    opkg.errors = lines_of(end.errors);
    opkg.code = static_cast<int32_t>(strtol(opkg.lines.at(0).c_str(), nullptr, 10));
    opkg.lines.erase(opkg.lines.begin());
    opkg.message = result_words(opkg.code);
  } catch (const Failure& failure) {
    opkg.code = failure.code();
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
