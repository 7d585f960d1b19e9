// Processes that do a part of the work, each with an end.
#ifndef TARVIO_CLIENT_PROCESS_CHILD_H
#define TARVIO_CLIENT_PROCESS_CHILD_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "process/work_directory.h"

namespace client {

// Thrown when a signal came that ends this process, which it does as soon as the work directory is
// gone.
struct Interrupted {};

// Takes what a child writes, piece by piece.
using Sink = std::function<void(std::string_view)>;

// Both run a process in the work directory, in a process group of its own, with an empty standard
// input and LC_ALL=C, and wait for it. Whoever is not done after a positive number of seconds, or
// when a signal comes that ends this process, is ended with its children.

// Runs a program, without a shell. Throws a Failure, with the first line that it wrote on standard
// error, when it did not succeed.
void run_tool(const WorkDirectory& directory, const std::vector<std::string>& words, double seconds,
              const Sink& sink);

struct JobEnd {
  std::string result;
  std::string errors;  // what was written on standard error and standard output
};

// What follows a job while it runs. What it throws ends the job.
struct Watch {
  Sink trace;                  // takes the `errors` as they come, in their place
  std::function<void()> tick;  // called now and then
  int tick_ms = -1;            // after this time at the latest
};

// Runs a function, for calls into the library that make it run tools: `tools` names these in
// messages. Throws the Failure that the function throws, or one of its own.
JobEnd run_job(const WorkDirectory& directory, const char* tools,
               const std::function<std::string()>& job, double seconds, const Watch& watch = {});

}  // namespace client

#endif
