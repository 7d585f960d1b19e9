#include "command_line.h"

#include <errno.h>
#include <getopt.h>
#include <grp.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <array>

namespace tarviod {

namespace {

constexpr char kHelp[] =
    "usage: tarviod [OPTION]...\n"
    "\n"
    "The resident application manager: starts and stops the installed applications, keeps\n"
    "their statuses, and answers tarvio and other clients on\n"
    "/usr/local/share/tarvio/ipcom. Runs in the foreground until SIGTERM or SIGINT, then\n"
    "stops the applications and exits. SIGHUP makes it read its configuration and the\n"
    "installed applications again. tarviod.conf(5) describes the configuration.\n"
    "\n"
    "  -c, --config FILE        read FILE instead of /etc/tarvio/tarviod.conf\n"
    "      --check-config       report mistakes in the configuration and exit\n"
    "  -d, --daemon             go to the background once requests are answered\n"
    "  -l, --log-level N        log messages of level N and above: 0 debug (also printed on\n"
    "                           standard output), 1 info, 2 warning (default), 3 error,\n"
    "                           4 none\n"
    "  -s, --start-all          start all applications that are enabled\n"
    "  -k, --keep-applications  leave the applications running on exit\n"
    "      --output WHERE       where applications print to: syslog (default with --daemon),\n"
    "                           inherit (the manager's streams; default without), or the\n"
    "                           path of a file, with a slash\n"
    "      --pid-file FILE      write the manager's process id to FILE once requests are\n"
    "                           answered, and remove FILE on exit\n"
    "      --socket-mode MODE   access mode of the socket, in octal (default 0666)\n"
    "      --socket-group GROUP group of the socket, a name or a number\n"
    "  -h, --help               print this help\n"
    "  -V, --version            print the version\n"
    "\n"
    "exit status: 0 stopped on request, or the configuration is valid; 1 could not start, or\n"
    "it is not valid or cannot be checked; 64 wrong command line\n";

constexpr int kMaxLogLevel = 4;
constexpr unsigned kMaxMode = 0777;
constexpr unsigned kMaxGroup = UINT_MAX - 1;  // the last one stands for no change
constexpr int kOctal = 8;
constexpr int kDecimal = 10;

enum : int {
  kConfig = 'c',
  kDaemon = 'd',
  kLogLevel = 'l',
  kStartAll = 's',
  kKeep = 'k',
  kHelpOption = 'h',
  kVersion = 'V',
  kCheckConfig = 256,
  kPidFile,
  kOutput,
  kSocketMode,
  kSocketGroup
};

const std::array<option, 13> kLongOptions = {{
    {"config", required_argument, nullptr, kConfig},
    {"check-config", no_argument, nullptr, kCheckConfig},
    {"daemon", no_argument, nullptr, kDaemon},
    {"log-level", required_argument, nullptr, kLogLevel},
    {"start-all", no_argument, nullptr, kStartAll},
    {"keep-applications", no_argument, nullptr, kKeep},
    {"pid-file", required_argument, nullptr, kPidFile},
    {"output", required_argument, nullptr, kOutput},
    {"socket-mode", required_argument, nullptr, kSocketMode},
    {"socket-group", required_argument, nullptr, kSocketGroup},
    {"help", no_argument, nullptr, kHelpOption},
    {"version", no_argument, nullptr, kVersion},
    {nullptr, 0, nullptr, 0},
}};

int refuse_line() {
  (void)fputs("Try 'tarviod --help'.\n", stderr);
  return kExitUsage;
}

// None unless the whole text is a number of this base, from 0 to the maximum.
std::optional<unsigned> parse_number(const char* text, int base, unsigned max) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long number = strtoull(text, &end, base);
  const bool is_number = errno == 0 && text[0] >= '0' && text[0] <= '9' && *end == '\0';
  if (!is_number || number > max) return std::nullopt;
  return static_cast<unsigned>(number);
}

// A path that stays valid when the current directory changes. Null, with the reason on standard
// error, when the current directory is not known or the path too long.
const char* absolute(const char* path, char (&joined)[PATH_MAX]) {
  if (path[0] == '/') return path;
  const bool known = getcwd(joined, sizeof joined) != nullptr;
  const size_t length = known ? strlen(joined) : 0;
  if (known && length + 1 + strlen(path) < sizeof joined) {
    (void)snprintf(joined + length, sizeof joined - length, "/%s", path);
    return joined;
  }
  (void)fprintf(stderr, "tarviod: %s: %s\n", path, strerror(known ? ENAMETOOLONG : errno));
  return nullptr;
}

// Each of these sets an option, and returns the exit status when that ends the program.
using Status = std::optional<int>;

Status set_path(const char*& path, char (&joined)[PATH_MAX]) {
  if (optarg[0] == '\0') {
    (void)fputs("tarviod: the name of a file must not be empty\n", stderr);
    return refuse_line();
  }
  path = absolute(optarg, joined);
  return path == nullptr ? Status(kExitFailure) : std::nullopt;
}

Status set_config(Options& options) {
  static char joined[PATH_MAX];
  return set_path(options.config, joined);
}

Status set_pid_file(Options& options) {
  static char joined[PATH_MAX];
  return set_path(options.pid_file, joined);
}

Status set_output(Options& options) {
  static char joined[PATH_MAX];
  options.output = optarg;
  if (strcmp(optarg, kSyslogOutput) == 0 || strcmp(optarg, kInheritedOutput) == 0) {
    return std::nullopt;
  }
  // More likely a mistyped word than a file in the current directory.
  if (optarg[0] != '\0' && strchr(optarg, '/') == nullptr) {
    (void)fprintf(
        stderr, "tarviod: --output: '%s' is not syslog, inherit, or a path with a slash\n", optarg);
    return refuse_line();
  }
  const Status status = set_path(options.output, joined);
  if (status || strlen(options.output) <= kMaxOutputBytes) return status;
  (void)fprintf(stderr, "tarviod: %s: %s\n", optarg, strerror(ENAMETOOLONG));
  return kExitFailure;
}

Status set_log_level(Options& options) {
  const std::optional<unsigned> level = parse_number(optarg, kDecimal, kMaxLogLevel);
  if (!level) {
    (void)fprintf(stderr, "tarviod: log level '%s' is not a number from 0 to %d\n", optarg,
                  kMaxLogLevel);
    return refuse_line();
  }
  options.log_level = static_cast<int>(*level);
  return std::nullopt;
}

Status set_socket_mode(Options& options) {
  const std::optional<unsigned> mode = parse_number(optarg, kOctal, kMaxMode);
  if (!mode) {
    (void)fprintf(stderr, "tarviod: socket mode '%s' is not an octal number from 0 to 0%o\n",
                  optarg, kMaxMode);
    return refuse_line();
  }
  options.socket.mode = *mode;
  return std::nullopt;
}

Status set_socket_group(Options& options) {
  errno = 0;
  const group* const entry = getgrnam(optarg);
  const int error = errno;
  const std::optional<unsigned> number = parse_number(optarg, kDecimal, kMaxGroup);
  if (entry == nullptr && !number) {
    (void)fprintf(stderr, "tarviod: socket group '%s': %s: create it, or name another one\n",
                  optarg, error == 0 ? "no such group" : strerror(error));
    return kExitFailure;
  }
  options.socket.group = entry == nullptr ? *number : entry->gr_gid;
  return std::nullopt;
}

Status set_option(int option, Options& options) {
  switch (option) {
    case kConfig:
      return set_config(options);
    case kCheckConfig:
      options.check_config = true;
      return std::nullopt;
    case kDaemon:
      options.daemon = true;
      return std::nullopt;
    case kLogLevel:
      return set_log_level(options);
    case kStartAll:
      options.start_all = true;
      return std::nullopt;
    case kKeep:
      options.keep_applications = true;
      return std::nullopt;
    case kPidFile:
      return set_pid_file(options);
    case kOutput:
      return set_output(options);
    case kSocketMode:
      return set_socket_mode(options);
    case kSocketGroup:
      return set_socket_group(options);
    case kHelpOption:
      (void)fputs(kHelp, stdout);
      return 0;
    case kVersion:
      (void)puts("tarviod " TARVIO_VERSION);
      return 0;
    default:
      return refuse_line();  // getopt_long has reported what is wrong
  }
}

}  // namespace

CommandLine parse_command_line(int argc, char** argv) {
  Options options;
  int option = 0;
  while ((option = getopt_long(argc, argv, "c:dl:skhV", kLongOptions.data(), nullptr)) != -1) {
    const Status status = set_option(option, options);
    if (status) return {.options = std::nullopt, .exit_status = *status};
  }
  if (optind < argc) {
    (void)fprintf(stderr, "tarviod: unexpected argument '%s'\n", argv[optind]);
    return {.options = std::nullopt, .exit_status = refuse_line()};
  }
  if (options.output == nullptr) options.output = options.daemon ? kSyslogOutput : kInheritedOutput;
  return {.options = options, .exit_status = 0};
}

}  // namespace tarviod
