// The command line of tarviod.
#ifndef TARVIOD_COMMAND_LINE_H
#define TARVIOD_COMMAND_LINE_H

#include <stddef.h>
#include <sys/types.h>

#include <optional>

namespace tarviod {

// Who may connect.
struct SocketAccess {
  mode_t mode = 0666;
  gid_t group = static_cast<gid_t>(-1);  // the manager's own
};

// Where applications print to, beside a file.
inline constexpr char kSyslogOutput[] = "syslog";
inline constexpr char kInheritedOutput[] = "inherit";
inline constexpr size_t kMaxOutputBytes = 1023;  // of a file's path

struct Options {
  bool daemon = false;
  bool start_all = false;
  bool keep_applications = false;
  bool check_config = false;
  int log_level = 2;
  const char* config = nullptr;    // an absolute path; null for the default one
  const char* output = nullptr;    // one of the words below, or an absolute path
  const char* pid_file = nullptr;  // an absolute path; null for none
  SocketAccess socket;
};

// Exit statuses of the manual page.
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 64;

struct CommandLine {
  std::optional<Options> options;  // none when the program is to exit at once
  int exit_status = 0;
};

// Parses the command line. Prints help and version on standard output, and a mistake on standard
// error.
CommandLine parse_command_line(int argc, char** argv);

}  // namespace tarviod

#endif
