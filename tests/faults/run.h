// A run of a program with one fault, and what it left.
#ifndef TARVIO_TESTS_FAULTS_RUN_H
#define TARVIO_TESTS_FAULTS_RUN_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "faults/fault.h"

namespace faults {

inline constexpr char kTemporaryDirectory[] = "/run/faults/tmp";
inline constexpr char kWorkDirectory[] = "/run/faults/work";

struct Run {
  int status = -1;  // exit status; -1 when a signal ended it
  int signal = 0;
  bool is_late = false;  // it was killed
  double seconds = 0;
  std::string output;
  std::string errors;
  std::vector<std::string> left;  // files in its temporary directory, and processes
  fault_record record = {};

  bool has_happened() const { return record.happened != 0; }
};

struct Program {
  std::vector<std::string> command;
  // What its user does meanwhile; it must come to an end soon after, if it has not.
  std::function<void(pid_t)> use = {};
  std::string also_loaded = {};  // a module beside the one that injects the fault
  bool is_watched = false;       // it says itself what counts (fault_record.h)
};

// The client with these arguments.
Program client(const std::vector<std::string>& words);

// Ends it after so many seconds. Its current directory is kWorkDirectory, TMPDIR
// kTemporaryDirectory.
Run run_program(const Program& program, const Fault& fault, double seconds);

// The processes that this one has, those that became its own when their parents ended included.
std::vector<pid_t> own_children();
// Of them this one may stay: it is not left by a run.
void keep_process(pid_t process);
void end_process(pid_t process);

// Where the fault happened: the function that failed, and its callers in the project's objects.
std::string place_of(const fault_record& record);

}  // namespace faults

#endif
