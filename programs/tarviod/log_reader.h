// The process that reads the log for the manager. Each read costs it two descriptors for good, so
// it ends after a number of reads, and another one takes its place.
#ifndef TARVIOD_LOG_READER_H
#define TARVIOD_LOG_READER_H

namespace tarviod {

// The name under which the program is that process. Its arguments: log level, log file, seconds
// between two looks at the file, and a text and an application for each hook.
inline constexpr char kLogReaderName[] = "tarviod-log-reader";
inline constexpr int kReadsOfALogReader = 100;

// Its descriptors: the position to begin at, and where the reports go.
inline constexpr int kPositionFd = 0;
inline constexpr int kReportFd = 3;

// Reads until the manager is gone, or often enough. Returns the exit status.
int run_log_reader(int argc, char** argv);

}  // namespace tarviod

#endif
