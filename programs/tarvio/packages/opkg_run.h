// Runs of opkg. The client composes the command line itself: the library's calls refuse names that
// a shell would read otherwise, and keep what opkg printed to themselves.
#ifndef TARVIO_CLIENT_PACKAGES_OPKG_RUN_H
#define TARVIO_CLIENT_PACKAGES_OPKG_RUN_H

#include <cstdint>
#include <string>
#include <vector>

#include "process/failure.h"
#include "process/work_directory.h"

namespace client {

struct OpkgCommand {
  const char* word = "";
  std::string operand;                  // may hold anything: it is quoted for the shell
  const char* force_options = nullptr;  // in place of those from the environment
  bool is_listing = false;              // standard output is a listing, separate from errors
  bool is_alone = false;                // nothing that the operand needs is fetched from feeds
};

// What came of a run.
struct OpkgRun {
  int32_t code = 0;         // 0 only means that opkg printed no message that the library knows
  bool has_failed = false;  // it was stopped or killed, or its own exit status is not 0
  std::string message = {};
  ExitStatus status = kDone;             // kTimeout when it had to be stopped
  std::vector<std::string> lines = {};   // what opkg printed
  std::vector<std::string> errors = {};  // on standard error, where that is separate
};

// The whole line for the shell: the options from the environment, as the library uses them, and the
// offline root when the device does not run from its installed one. Throws a Failure when that
// cannot be found out.
std::string opkg_line(const OpkgCommand& command);

// Runs it in the work directory. Throws a Failure when there is no result at all.
OpkgRun run_opkg(const WorkDirectory& directory, const OpkgCommand& command, double seconds);

// Shows people what opkg said.
void show_words_of(const OpkgRun& run);

}  // namespace client

#endif
