// What is true after a run of opkg, whatever it says.
#ifndef TARVIO_CLIENT_PACKAGES_VERDICT_H
#define TARVIO_CLIENT_PACKAGES_VERDICT_H

#include <string>

#include "packages/installed.h"
#include "packages/opkg_run.h"

namespace client {

struct Verdict {
  std::string fact;          // for people: what was done
  bool is_disputed = false;  // opkg says otherwise, or something was not as expected
};

// What is to be installed.
struct Wanted {
  std::string name;
  std::string version;
  bool is_forced = false;  // also when this version is there already
};

// Both throw a Failure, with both facts when opkg and the listing disagree, when what was wanted is
// not so.
Verdict judge_installation(const Wanted& wanted, const Installed& before, const Installed& after,
                           const OpkgRun& run);
Verdict judge_removal(const std::string& name, const Installed& before, const Installed& after,
                      const OpkgRun& run);

// Throws a Failure when the run has listed no files of a package, not even none.
void judge_files(const Installed& now, const OpkgRun& run);

}  // namespace client

#endif
