// The library's restore of some areas, followed by its trace.
#ifndef TARVIO_CLIENT_FLASH_AREA_RESTORING_H
#define TARVIO_CLIENT_FLASH_AREA_RESTORING_H

#include <cstdint>
#include <string>
#include <vector>

#include "flash/area_parts.h"
#include "flash/flash_job.h"

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

class AreaRestoring {
 public:
  // The files of the areas and the package's control.tar.gz lie in the directory of the jobs. Notes
  // in `restored`, which holds a record for each area, what became of it.
  AreaRestoring(const std::vector<const FlashArea*>& areas, const FlashJobs& jobs,
                std::vector<RestoredArea>& restored)
      : areas_(areas), jobs_(jobs), restored_(restored) {}

  // An area that fails keeps no other from being written, and throws nothing.
  void run();

 private:
  [[nodiscard]] RestoredArea& current() const { return restored_.at(begun_ - 1); }
  void take(const FlashEvent& event);
  void begin();
  void finish();
  void note(const char* step, int64_t code);
  void tick();

  const std::vector<const FlashArea*>& areas_;
  const FlashJobs& jobs_;
  std::vector<RestoredArea>& restored_;
  size_t begun_ = 0;
  std::string file_;  // that is written
};

}  // namespace client

#endif
