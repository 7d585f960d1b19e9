// The library's restore of some areas, followed by its trace.
#ifndef TARVIO_CLIENT_AREA_RESTORING_H
#define TARVIO_CLIENT_AREA_RESTORING_H

#include <cstdint>
#include <string>
#include <vector>

#include "flash_areas.h"
#include "flash_job.h"
#include "json.h"

namespace client {

class AreaRestoring {
 public:
  // The files of the areas and the package's control.tar.gz lie in the folder of the jobs. Notes in
  // `restored`, which holds a record for each area, what became of it.
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
