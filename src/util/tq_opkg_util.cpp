#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include "base/chain.h"
#include "base/list_appender.h"
#include "base/offline_root.h"
#include "base/owners.h"
#include "tarvio/error.h"
#include "tarvio/opkg.h"
#include "tarvio/process.h"
#include "tarvio/text.h"
#include "util/log_macros.h"
#include "util/tq_repairs.h"

namespace {

constexpr char kOpkgProgram[] = "opkg";
constexpr char kRunCommand[] = "tq_opkg_run_command";
constexpr char kRunWithOptions[] = "tq_opkg_run_command_with_options";
constexpr char kCommandError[] = "run command error";
constexpr char kInstalledRoot[] = "root=/dev/mtdblock4";
constexpr size_t kBootLineBytes = 256;
constexpr size_t kOfflineLineSize = 256;  // longer lines are refused (oddity 62)

// The last line with a known text decides, and in it the highest row (oddity 58). Neither the exit
// status nor standard error counts (oddity 57).
int judge(const tq_list_t* lines) {
  int code = 0;
  for (const char* line : tarvio::Elements<char>(lines)) {
    for (int row = 0; row < TQ_OPKG_MESSAGES; ++row) {
      if (strstr(line, opkgmes[row]) != nullptr) code = opkgerr[row];
    }
  }
  TQ_DEBUG("return error code is %d", code);
  return code;
}

int run(const char* command, tq_list_t* lines) {
  const int result = tq_system_command(command, lines);
  if (result != 0) return result;
  const int code = judge(lines);
  for (char* line : tarvio::Elements<char>(lines)) {
    tq_chop(line);
    if (code != 0) TQ_INFO("%s", line);
  }
  return code;
}

int report(int code) {
  TQ_DEBUG("%s: %s - %d ", kRunCommand, kCommandError, code);
  return code;
}

// Null when memory runs out.
tarvio::CString command_line(const char* word, const char* options, const char* force_options,
                             const char* target) {
  const auto blank_before = [](const char* option) { return option == nullptr ? "" : " "; };
  const auto text_of = [](const char* option) { return option == nullptr ? "" : option; };
  char* line = nullptr;
  const int length =
      asprintf(&line, "%s%s%s%s%s %s %s", kOpkgProgram, blank_before(options), text_of(options),
               blank_before(force_options), text_of(force_options), word, target);
  return tarvio::CString(length < 0 ? nullptr : line);
}

}  // namespace

int tq_is_boot_online(int* online) {
  if (online == nullptr) return EINVAL;
  tarvio::Fd file(open("/proc/cmdline", O_RDONLY | O_CLOEXEC));
  if (!file.valid()) return errno;
  char line[kBootLineBytes + 1] = "";
  errno = 0;  // an empty file is not an error of the system
  if (tq_fdgets(line, sizeof line, file.get()) == nullptr) {
    if (!tarvio::is_repaired(TQ_REPAIR_BOOT_TEST)) (void)file.release();  // stays open (oddity 60)
    return errno;
  }
  if (errno != 0) return errno;  // the line is cut, and may lack the root
  *online = strstr(line, kInstalledRoot) != nullptr ? 1 : 0;  // anywhere in the line (oddity 59)
  return 0;
}

int tq_opkg_run_command(const char* command, tq_list_t* output) {
  if (command == nullptr) {
    TQ_DEBUG("%s: parameter is null ", kRunCommand);
    return report(EINVAL);
  }
  // In a list of its own, since the caller's may hold the lines of earlier commands.
  tarvio::TextList lines;
  const int code = run(command, lines.get());
  if (output != nullptr) tarvio::ListAppender(*output).append_all(*lines.get());
  return code == 0 ? 0 : report(code);
}

int tq_opkg_run_command_with_options(const char* command_word, const char* options,
                                     const char* force_options, const char* target) {
  if (command_word == nullptr || target == nullptr) {
    TQ_DEBUG("%s: parameter is null ", kRunWithOptions);
    return -1;
  }
  const tarvio::CString online_line = command_line(command_word, options, force_options, target);
  if (online_line == nullptr) {
    TQ_DEBUG("%s: malloc error ", kRunWithOptions);
    return ENOMEM;
  }

  int online = 1;
  (void)tq_is_boot_online(&online);  // a test that fails counts as online (oddity 61)
  TQ_DEBUG("opkg online check result - %d.", online);
  const char* line = online_line.get();
  char offline_line[kOfflineLineSize];
  if (online == 0) {
    TQ_DEBUG("offline root setting");
    const int length = snprintf(offline_line, sizeof offline_line, "%s --offline-root=%s", line,
                                tarvio::kOfflineRoot);
    if (static_cast<size_t>(length) >= sizeof offline_line) {
      TQ_WARNING("%s: offline command line of %d characters is too long, at most %zu: %s",
                 kRunWithOptions, length, sizeof offline_line - 1, line);
      return ENAMETOOLONG;
    }
    line = offline_line;
  }

  TQ_DEBUG("%s: cmd=[%s] ", kRunWithOptions, line);
  const int result = tq_opkg_run_command(line, nullptr);
  if (result != 0) TQ_DEBUG("%s: %s command exec error ", kRunWithOptions, command_word);
  return result;
}
