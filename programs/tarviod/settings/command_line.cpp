#include "command_line.h"

#include <errno.h>
#include <getopt.h>
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
    "stops the applications that it started and exits. SIGHUP makes it read its\n"
    "configuration again.\n"
    "\n"
    "  -c, --config FILE        read FILE instead of /etc/tarvio/tarviod.conf\n"
    "      --check-config       report mistakes in the configuration and exit\n"
    "  -d, --daemon             go to the background once requests are answered\n"
    "  -l, --log-level N        log messages of level N and above: 0 debug (also printed on\n"
    "                           standard output), 1 info, 2 warning (default), 3 error,\n"
    "                           4 none\n"
    "  -s, --start-all          start all applications\n"
    "  -k, --keep-applications  leave the applications running on exit\n"
    "  -h, --help               print this help\n"
    "  -V, --version            print the version\n"
    "\n"
    "exit status: 0 stopped on request, or the configuration is valid; 1 could not start, or\n"
    "it is not valid or cannot be checked; 64 wrong command line\n";

constexpr int kMaxLogLevel = 4;

enum : int {
  kConfig = 'c',
  kDaemon = 'd',
  kLogLevel = 'l',
  kStartAll = 's',
  kKeep = 'k',
  kHelpOption = 'h',
  kVersion = 'V',
  kCheckConfig = 256
};

const std::array<option, 9> kLongOptions = {{
    {"config", required_argument, nullptr, kConfig},
    {"check-config", no_argument, nullptr, kCheckConfig},
    {"daemon", no_argument, nullptr, kDaemon},
    {"log-level", required_argument, nullptr, kLogLevel},
    {"start-all", no_argument, nullptr, kStartAll},
    {"keep-applications", no_argument, nullptr, kKeep},
    {"help", no_argument, nullptr, kHelpOption},
    {"version", no_argument, nullptr, kVersion},
    {nullptr, 0, nullptr, 0},
}};

CommandLine end_with(int status) { return {.options = std::nullopt, .exit_status = status}; }

CommandLine refuse_line() {
  (void)fputs("Try 'tarviod --help'.\n", stderr);
  return end_with(kExitUsage);
}

std::optional<int> parse_log_level(const char* text) {
  char* end = nullptr;
  errno = 0;
  const long level = strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || level < 0 || level > kMaxLogLevel) {
    return std::nullopt;
  }
  return static_cast<int>(level);
}

// A path that stays valid when the current directory changes. Null, with the reason on standard
// error, when the current directory is not known or the path too long.
const char* absolute(const char* path) {
  static char joined[PATH_MAX];
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

}  // namespace

CommandLine parse_command_line(int argc, char** argv) {
  Options options;
  int option = 0;
  while ((option = getopt_long(argc, argv, "c:dl:skhV", kLongOptions.data(), nullptr)) != -1) {
    switch (option) {
      case kConfig:
        options.config = absolute(optarg);
        if (options.config == nullptr) return end_with(kExitFailure);
        break;
      case kCheckConfig:
        options.check_config = true;
        break;
      case kDaemon:
        options.daemon = true;
        break;
      case kLogLevel: {
        const std::optional<int> level = parse_log_level(optarg);
        if (!level) {
          (void)fprintf(stderr, "tarviod: log level '%s' is not a number from 0 to %d\n", optarg,
                        kMaxLogLevel);
          return refuse_line();
        }
        options.log_level = *level;
        break;
      }
      case kStartAll:
        options.start_all = true;
        break;
      case kKeep:
        options.keep_applications = true;
        break;
      case kHelpOption:
        (void)fputs(kHelp, stdout);
        return end_with(0);
      case kVersion:
        (void)puts("tarviod " TARVIO_VERSION);
        return end_with(0);
      default:
        return refuse_line();  // getopt_long has reported what is wrong
    }
  }
  if (optind < argc) {
    (void)fprintf(stderr, "tarviod: unexpected argument '%s'\n", argv[optind]);
    return refuse_line();
  }
  return {.options = options, .exit_status = 0};
}

}  // namespace tarviod
