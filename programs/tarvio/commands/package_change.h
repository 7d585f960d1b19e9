// What installing and removing packages share.
#ifndef TARVIO_CLIENT_COMMANDS_PACKAGE_CHANGE_H
#define TARVIO_CLIENT_COMMANDS_PACKAGE_CHANGE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "commands/arguments.h"
#include "packages/installed.h"
#include "packages/opkg_run.h"
#include "packages/verdict.h"
#include "terminal/outcome.h"

namespace client {

// An installation or a removal.
struct Change {
  Outcome outcome;
  std::string fact;                 // for people
  std::string name;                 // empty when it is not known
  std::optional<bool> was_stopped;  // of a removal: an application, before it
  Installed now;
  int32_t opkg_code = 0;
  std::vector<std::string> opkg_lines;
  // Of an application: whether a running manager was made to know of the change; none without one.
  std::optional<bool> is_refreshed;
};

// Changes the packages that the operands name, one after the other. The work on each throws a
// Failure when the package is not as was wanted.
Result change_packages(const Arguments& arguments, const char* operand_key,
                       const std::function<void(const std::string& operand, Change&)>& work);

// Takes over what opkg said.
void note_run(const OpkgRun& run, Change& change);

// Takes over the verdict, and shows what opkg said where that matters.
void conclude(const std::function<Verdict()>& judge, const OpkgRun& run, Change& change);

// Has a running manager learn of the change of an application. The package is as wanted already, so
// a failure is only reported.
void refresh_manager(Change& change);

}  // namespace client

#endif
