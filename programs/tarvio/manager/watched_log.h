// The system log that the manager watches.
#ifndef TARVIO_CLIENT_MANAGER_WATCHED_LOG_H
#define TARVIO_CLIENT_MANAGER_WATCHED_LOG_H

#include <string>

namespace client {

// As the manager's default configuration has it.
struct WatchedLog {
  bool is_journal = false;
  std::string path;    // of a file
  std::string format;  // of its lines
  bool is_form_configured = false;
  int hooks = 0;
  bool all_hooks_have_levels = true;
  bool is_disabled = false;
};

// Throws a Failure that names file, line, cause and remedy when the manager would refuse it.
WatchedLog configured_log();

// What lines of a log file look like.
struct LogForm {
  bool is_empty = true;
  std::string name;       // of the form of the last line that has one
  std::string complaint;  // why none of the lines can count, with the remedy; empty if one can
};

// Reads the file. Throws a Failure when that cannot be done.
LogForm form_of(const WatchedLog& log);

}  // namespace client

#endif
