// The manager: its socket, itself, and the log that it watches.
#include <grp.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "commands/doctor/finding.h"
#include "manager/manager_client.h"
#include "manager/manager_state.h"
#include "manager/watched_log.h"
#include "process/child.h"
#include "process/failure.h"
#include "process/paths.h"
#include "process/required_tools.h"
#include "tarvio/com.h"

namespace client {

namespace {

constexpr char kSocket[] = "socket";
constexpr char kManager[] = "manager";
constexpr char kDescriptors[] = "descriptors";
constexpr char kLog[] = "system log";
constexpr char kRestartManager[] = "restart or update tarviod";

std::string octal(mode_t mode) {
  char text[16];
  (void)snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777U));
  return text;
}

std::string group_name(gid_t id) {
  const group* const entry = getgrgid(id);
  return entry == nullptr ? std::to_string(id) : entry->gr_name;
}

// Connecting takes the right to write to the socket and that to enter its directory: of both, all
// users, a group or only the owner may have it.
std::string users_of(const struct stat& directory, const struct stat& socket) {
  const bool all_enter = (directory.st_mode & S_IXOTH) != 0;
  const bool all_write = (socket.st_mode & S_IWOTH) != 0;
  if (all_enter && all_write) return "every user may connect";
  const bool group_enters = all_enter || (directory.st_mode & S_IXGRP) != 0;
  const bool group_writes = all_write || (socket.st_mode & S_IWGRP) != 0;
  if (!group_enters || !group_writes) return "only its owner and root may connect";
  const std::string entering = group_name(directory.st_gid);
  const std::string writing = group_name(socket.st_gid);
  if (all_enter || entering == writing) return "root and group " + writing + " may connect";
  if (all_write) return "root and group " + entering + " may connect";
  return "root and members of both " + entering + " and " + writing + " may connect";
}

Finding bad_socket(const std::string& found, const std::string& remedy) {
  return {.check = kSocket, .status = CheckStatus::kFailed, .found = found, .remedy = remedy};
}

// None when there is no such file.
std::optional<struct stat> status_of(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) return status;
  if (errno != ENOENT) throw Failure::of_system(path);
  return std::nullopt;
}

// Whoever may write in it can answer in place of the manager.
Finding check_socket_directory(const std::string& directory, const struct stat& status) {
  if (!S_ISDIR(status.st_mode)) {
    return bad_socket(directory + " is not a directory", "remove it, and restart tarviod");
  }
  const std::string found = directory + ", mode " + octal(status.st_mode);
  if (!may_be_manager(status.st_uid)) {
    return bad_socket(found + ": its owner, user " + std::to_string(status.st_uid) +
                          ", can put another socket there",
                      "chown root " + directory);
  }
  const mode_t others = S_IWOTH | (status.st_gid == 0 ? 0U : S_IWGRP);
  if ((status.st_mode & others) == 0) return {.check = kSocket, .found = found};
  return bad_socket(found + ": others can put a socket of their own there",
                    "chmod 755 " + directory);
}

Finding check_socket_file(const struct stat& directory, const struct stat& socket) {
  constexpr char kRemedy[] = "restart tarviod, which replaces it";
  if (!S_ISSOCK(socket.st_mode)) return bad_socket(TQ_COM_SOCKET_PATH " is not a socket", kRemedy);
  if (!may_be_manager(socket.st_uid)) {
    return bad_socket(TQ_COM_SOCKET_PATH " belongs to user " + std::to_string(socket.st_uid) +
                          ", who may answer in place of the manager",
                      kRemedy);
  }
  return {.check = kSocket,
          .found = users_of(directory, socket) + " (mode " + octal(socket.st_mode) + ')'};
}

Finding finding_of_version(const std::string& version) {
  if (version == TARVIO_VERSION) {
    return {.check = kManager, .found = "tarviod " + version + " answers"};
  }
  const std::string manager =
      version.empty() ? "a manager that does not report its version" : "tarviod " + version;
  return {.check = kManager,
          .status = CheckStatus::kWarning,
          .found = manager + " answers, and this is tarvio " TARVIO_VERSION,
          .remedy = kRestartManager};
}

Finding find_manager(const Examination& examination) {
  try {
    return finding_of_version(ask_version(examination.seconds));
  } catch (const Failure& failure) {
    const bool is_missing = failure.status() == kNoManager;
    return {.check = kManager,
            .status = CheckStatus::kFailed,
            .found = failure.what(),
            .remedy = is_missing                 ? "start tarviod"
                      : failure.code() == EACCES ? kRunAsRoot
                                                 : kRestartManager};
  }
}

Finding check_descriptors() {
  try {
    const std::optional<ManagerState> state = state_if_any();
    if (!state) {
      return {.check = kDescriptors,
              .status = CheckStatus::kWarning,
              .found = "no figures in /run/tarvio/state",
              .remedy = kRestartManager};
    }
    const std::string found = std::to_string(state->descriptors_used) + " of " +
                              std::to_string(state->descriptor_limit) + " are in use";
    if (!state->is_short_of_descriptors()) return {.check = kDescriptors, .found = found};
    return {.check = kDescriptors,
            .status = CheckStatus::kWarning,
            .found = found,
            .remedy = "raise the manager's limit of open files"};
  } catch (const Failure& failure) {
    return {.check = kDescriptors,
            .status = CheckStatus::kWarning,
            .found = std::string("not known: ") + failure.what(),
            .remedy = failure.code() == EACCES ? kRunAsRoot : kRestartManager};
  }
}

// Why the manager does not watch it; empty when it does.
std::string reason_not_watched(const WatchedLog& log) {
  if (log.hooks == 0) return "not watched: no hook is configured";
  return log.is_disabled ? "not watched: log_period is 0" : "";
}

// What is not watched is not needed.
Finding bad_log(const WatchedLog& log, const std::string& found, const std::string& remedy) {
  const std::string reason = reason_not_watched(log);
  return {.check = kLog,
          .status = reason.empty() ? CheckStatus::kFailed : CheckStatus::kWarning,
          .found = found + (reason.empty() ? "" : " (" + reason + ')'),
          .remedy = remedy};
}

Finding good_log(const WatchedLog& log, const std::string& found) {
  const std::string reason = reason_not_watched(log);
  return {
      .check = kLog,
      .found = found + ", " + (reason.empty() ? "hooks: " + std::to_string(log.hooks) : reason)};
}

// Also just after a rotation, when only a form that is not configured is unknown.
Finding empty_log(const WatchedLog& log) {
  const std::string why = log.is_form_configured
                              ? "so lines of the form " + log.format + " are yet to come"
                              : "so the form of its lines is not known";
  Finding finding = bad_log(log, log.path + " is empty, " + why,
                            "write a line with 'logger test', and run 'tarvio doctor' again");
  if (log.is_form_configured) finding.status = CheckStatus::kWarning;
  return finding;
}

Finding check_file(const WatchedLog& log) {
  try {
    const LogForm form = form_of(log);
    if (form.is_empty) return empty_log(log);
    if (!form.complaint.empty()) {
      return bad_log(log, log.path + ": " + form.complaint, "see tarviod.conf(5), THE SYSTEM LOG");
    }
    return good_log(log, log.path + ", lines of the form " + form.name);
  } catch (const Failure& failure) {
    return bad_log(log, log.path + ": " + failure.what(),
                   failure.code() == EACCES
                       ? kRunAsRoot
                       : "start the log daemon, or set log_file or log_source in "
                         "/etc/tarvio/tarviod.conf");
  }
}

Finding check_journal(const Examination& examination, const WatchedLog& log) {
  if (path_of_tool("journalctl").empty()) {
    return bad_log(log, "the journal: journalctl is not on PATH", kRemedyForMissingTool);
  }
  if (examination.directory == nullptr) {
    return bad_log(log, "the journal, which needs a work directory to be checked",
                   "see 'work directory' above");
  }
  constexpr char kRemedy[] = "start systemd-journald, or run tarvio as root";
  bool is_empty = true;
  try {
    execute(*examination.directory, Rights::of_caller(),
            {"journalctl", "-q", "--no-pager", "-n", "1", "-o", "short"}, examination.seconds,
            [&](std::string_view /*piece*/) { is_empty = false; });
  } catch (const Failure& failure) {
    return bad_log(log, std::string("the journal: ") + failure.what(),
                   failure.status() == kTimeout
                       ? "make the journal smaller: journalctl --vacuum-size=SIZE"
                       : kRemedy);
  }
  if (is_empty) return bad_log(log, "the journal: journalctl prints no line", kRemedy);
  return good_log(log, "the journal, which journalctl prints");
}

}  // namespace

Findings check_socket(const Examination& /*examination*/) {
  const std::string path = directory_of(TQ_COM_SOCKET_PATH);
  const std::optional<struct stat> directory = status_of(path);
  if (!directory) {
    return {{.check = kSocket,
             .status = CheckStatus::kWarning,
             .found = path + " does not exist",
             .remedy = "start tarviod, which makes it"}};
  }
  Finding finding = check_socket_directory(path, *directory);
  if (finding.status != CheckStatus::kOk) return {finding};
  const std::optional<struct stat> socket = status_of(TQ_COM_SOCKET_PATH);
  if (!socket) return {finding};
  const Finding of_file = check_socket_file(*directory, *socket);
  if (of_file.status != CheckStatus::kOk) return {of_file};
  finding.found += "; " + of_file.found;
  return {finding};
}

Findings check_manager(const Examination& examination) {
  const Finding manager = find_manager(examination);
  if (manager.status == CheckStatus::kFailed) return {manager};
  return {manager, check_descriptors()};
}

Findings check_log(const Examination& examination) {
  const WatchedLog log = configured_log();
  return {log.is_journal ? check_journal(examination, log) : check_file(log)};
}

}  // namespace client
