// Follows the library's restore of some areas.
#ifndef TARVIO_CLIENT_FLASH_RESTORE_TRACKER_H
#define TARVIO_CLIENT_FLASH_RESTORE_TRACKER_H

#include <cstdint>
#include <string>
#include <vector>

#include "flash/flash_job.h"
#include "flash/flash_record.h"

namespace client {

// What the flash memory of an area holds after a restore.
enum class AreaState { kUntouched, kUnfinished, kWritten };

struct RestoredArea {
  std::string name;
  uint64_t size_bytes = 0;
  AreaState state = AreaState::kUntouched;
  bool is_verified = false;
  std::string failure = {};  // empty when it was written
};

class RestoreTracker {
 public:
  // The files of the areas and the package's control.tar.gz are in the directory of the jobs. Notes
  // in `restored`, which holds a record for each area in the package's order, what became of it.
  RestoreTracker(const FlashJobs& jobs, std::vector<RestoredArea>& restored)
      : jobs_(jobs), restored_(restored) {}

  // The failure of an area is noted, not thrown, and the others are written all the same.
  void run();

 private:
  [[nodiscard]] RestoredArea& current() const { return restored_.at(begun_ - 1); }
  void on_record(const FlashRecord& record);
  void on_begin(const FlashRecord& record);
  void begin_area();
  void finish_area();
  void tick();

  const FlashJobs& jobs_;
  std::vector<RestoredArea>& restored_;
  size_t begun_ = 0;  // areas
  std::string file_;  // that is being written
};

}  // namespace client

#endif
