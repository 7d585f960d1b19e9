// The process that reads the log for the manager: a log on a file system that hangs stops the
// reader alone, and what the parser logs at debug level does not reach the log that it parses.
#ifndef TARVIOD_LOG_READER_H
#define TARVIOD_LOG_READER_H

namespace tarviod {

// The name under which the program is that process. Its arguments: log, format, seconds between two
// looks at a file, and a text, an application and a level for each hook, as config.h has them.
inline constexpr char kLogReaderName[] = "tarviod-log-reader";

// It reads the position to begin at from standard input, and writes its reports to standard output.
inline constexpr int kPositionFd = 0;
inline constexpr int kReportFd = 1;

// Reads until the manager is gone.
int run_log_reader(int argc, char** argv);

}  // namespace tarviod

#endif
