#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "base/chain.h"
#include "base/offline_root.h"
#include "base/owners.h"
#include "tarvio/error.h"
#include "tarvio/opkg.h"
#include "tarvio/process.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

namespace {

constexpr char kRunCommand[] = "tq_opkg_run_command";
constexpr char kRunWithOptions[] = "tq_opkg_run_command_with_options";
constexpr char kCommandError[] = "run command error";
constexpr char kRootDevice[] = "/dev/mtdblock4";
constexpr size_t kBootLineBytes = 256;
constexpr size_t kOfflineLineSize = 256;  // the offline command line has at most 255 characters

constexpr char kOpkgProgram[] = "opkg";

// The code of the highest row whose text the line holds, or the code so far.
int judge_line(const char* line, int code) {
  for (int row = 0; row < TQ_OPKG_MESSAGES; ++row) {
    if (strstr(line, opkgmes[row]) != nullptr) code = opkgerr[row];
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
  const char* const none = "";
  const char* const option = options == nullptr ? none : options;
  const char* const force = force_options == nullptr ? none : force_options;
  char* line = nullptr;
  const int length =
      asprintf(&line, "%s%s%s%s%s %s %s", kOpkgProgram, options == nullptr ? "" : " ", option,
               force_options == nullptr ? "" : " ", force, word, target);
  return tarvio::CString(length < 0 ? nullptr : line);
}

}  // namespace

int tq_is_boot_online(int* online) {
  if (online == nullptr) return EINVAL;
  const int fd = open("/proc/cmdline", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno;
  char line[kBootLineBytes + 1] = "";
  errno = 0;  // an empty file is no error of the system
  if (tq_fdgets(line, sizeof line, fd) == nullptr) return errno;  // fd stays open, on purpose
  tarvio::Fd(fd).reset();

  char root[kBootLineBytes];
  (void)snprintf(root, sizeof root, "root=%s", kRootDevice);
  *online = strstr(line, root) != nullptr ? 1 : 0;
  return 0;
}

int tq_opkg_run_command(const char* command, tq_list_t* output) {
  if (command == nullptr) {
    TQ_DEBUG("%s: parameter is null ", kRunCommand);
    return report(EINVAL);
  }
  const tarvio::StringList temporary(output == nullptr ? tq_list_create() : nullptr);
  tq_list_t* lines = output == nullptr ? temporary.get() : output;
  if (lines == nullptr) return report(ENOMEM);

  const tq_list_node* last_before = tq_list_get_last(lines);
  const int run = tq_system_command(command, lines);
  if (run != 0) return report(run);

  const tarvio::Elements<char> printed(last_before == nullptr ? lines->head : last_before->next);
  int code = 0;
  for (const char* line : printed) code = judge_line(line, code);
  TQ_DEBUG("return error code is %d", code);
  for (char* line : printed) {
    tq_chop(line);
    if (code != 0) TQ_INFO("%s", line);
  }
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
  (void)tq_is_boot_online(&online);  // a test that failed counts as online
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
