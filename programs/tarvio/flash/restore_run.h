// A restore of an image package onto the flash memory.
#ifndef TARVIO_CLIENT_FLASH_RESTORE_RUN_H
#define TARVIO_CLIENT_FLASH_RESTORE_RUN_H

#include <string>
#include <vector>

#include "flash/restore_tracker.h"
#include "terminal/progress.h"

namespace client {

struct RestoreRequest {
  std::string file;            // the image package
  std::string work_directory;  // for intermediate files; empty: beside the package
  bool yes = false;            // do not ask
  bool force = false;          // also what the system uses
  bool verify = true;          // read the areas again and compare
  double timeout_seconds = 0;
  Progress::Kind progress = Progress::Kind::kNone;
};

// Notes in `restored` what became of each area. Throws a Failure when one of them failed.
void restore(const RestoreRequest& request, std::vector<RestoredArea>& restored);

// The names of the areas that are in a state, for people.
std::string names_of(const std::vector<RestoredArea>& restored, AreaState state);

}  // namespace client

#endif
