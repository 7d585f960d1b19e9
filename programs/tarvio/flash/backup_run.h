// A backup of flash areas into an image package.
#ifndef TARVIO_CLIENT_FLASH_BACKUP_RUN_H
#define TARVIO_CLIENT_FLASH_BACKUP_RUN_H

#include <cstdint>
#include <string>
#include <vector>

#include "flash/backup_tracker.h"
#include "terminal/progress.h"

namespace client {

struct BackupRequest {
  std::vector<std::string> areas;  // names, each of an area
  std::string file;                // the image package
  std::string work_directory;      // for intermediate files; empty: beside the package
  bool overwrite = false;
  bool verify = false;  // read raw areas again and compare
  double timeout_seconds = 0;
  Progress::Kind progress = Progress::Kind::kNone;
};

struct SavedImage {
  std::vector<SavedArea> areas;  // as far as they were tried
  uint64_t size_bytes = 0;
};

// Notes in `image` what became of it. Throws a Failure; a file that was there is unchanged then.
void back_up(const BackupRequest& request, SavedImage& image);

}  // namespace client

#endif
