// Child processes with a deadline.
#ifndef TARVIO_CLIENT_PROCESS_CHILD_H
#define TARVIO_CLIENT_PROCESS_CHILD_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "process/rights.h"
#include "process/work_directory.h"

namespace client {

// Thrown when a signal came that ends this process, which it does as soon as the work directory is
// gone.
struct Interrupted {};

// Takes what a child writes, piece by piece. What it throws ends the child.
using Sink = std::function<void(std::string_view)>;

// Called once at least, and now and then while a child runs.
struct Tick {
  std::function<void()> call;
  int every_ms;  // at the latest; -1: no time is too long
};

// All run a process in the work directory, in a process group of its own, with an empty standard
// input, LC_ALL=C and the given rights, and wait for it. After a positive number of seconds, or
// when a signal comes that ends this process, the whole group is killed.

// Runs a program, without a shell. Throws a Failure, with the first line that it wrote on standard
// error, when it did not succeed.
void execute(const WorkDirectory& directory, const Rights& rights,
             const std::vector<std::string>& words, double seconds, const Sink& sink);

struct ChildEnd {
  int status = 0;  // its exit status; 128 and the number of the signal that ended it
  bool is_late = false;
  std::string errors;  // what it wrote on standard error, at least the beginning
};

// Runs a program, without a shell, whatever comes of it. What it writes on standard output counts
// as written on standard error.
ChildEnd run_tool(const WorkDirectory& directory, const Rights& rights,
                  const std::vector<std::string>& words, double seconds);

// Runs a function, for calls into the library that make it run tools: `tools` names these in
// messages. What it writes to its descriptor goes to the sink; what is written on standard output
// and standard error is returned. Throws a Failure with the last line of that when the function
// threw anything.
std::string run_apart(const WorkDirectory& directory, const Rights& rights, const char* tools,
                      const std::function<void(int output)>& work, double seconds, const Sink& sink,
                      const Tick& tick = {{}, -1});

struct JobEnd {
  std::string result;
  std::string errors;  // what was written on standard error and standard output
};

// Runs a function of which only the result counts. Throws the Failure that the function throws, or
// one of its own.
JobEnd run_job(const WorkDirectory& directory, const Rights& rights, const char* tools,
               const std::function<std::string()>& job, double seconds,
               const Tick& tick = {{}, -1});

}  // namespace client

#endif
