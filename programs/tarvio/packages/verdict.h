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

// What should be installed.
struct Wanted {
  std::string name;
  std::string version;
};

// Both throw a Failure when opkg failed or the package is not as was wanted; it says what is
// installed.
Verdict judge_installation(const Wanted& wanted, const Installed& before, const Installed& after,
                           const OpkgRun& run);
Verdict judge_removal(const std::string& name, const Installed& before, const Installed& after,
                      const OpkgRun& run);

// Throws a Failure unless the run has listed the files of a package, even if there are none.
void judge_files(const Installed& now, const OpkgRun& run);

}  // namespace client

#endif
