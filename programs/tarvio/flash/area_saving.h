// The library's backup of some areas, followed by its trace.
#ifndef TARVIO_CLIENT_FLASH_AREA_SAVING_H
#define TARVIO_CLIENT_FLASH_AREA_SAVING_H

#include <cstdint>
#include <string>
#include <vector>

#include "flash/area_parts.h"
#include "flash/flash_job.h"
#include "process/failure.h"

namespace client {

// An area of a backup.
struct SavedArea {
  std::string name;
  uint64_t size_bytes = 0;
  std::string failure;  // empty when it was saved
};

struct ExpectedDump {
  uint64_t bytes;  // at least
  uint64_t end;    // where on the device nothing is read any more that is kept
};

class AreaSaving {
 public:
  // Notes in `saved` what became of each area as far as it was tried. Throws a Failure for a device
  // that cannot be read.
  AreaSaving(const std::vector<const FlashArea*>& areas, const FlashJobs& jobs,
             std::vector<SavedArea>& saved);

  // Throws a Failure, also for what the library's result hides.
  void run(const std::string& package);

 private:
  [[nodiscard]] const FlashArea& area() const { return *areas_.at(saved_.size() - 1); }
  [[nodiscard]] uint64_t bytes_of(const std::string& file) const;
  void take(const FlashEvent& event);
  void begin();
  void finish();
  void check_dump(uint64_t bytes);
  void check_place(uint64_t place) const;
  void tick();
  [[noreturn]] void fail_for_area(const Failure& failure);

  const std::vector<const FlashArea*>& areas_;
  const FlashJobs& jobs_;
  std::vector<SavedArea>& saved_;
  std::vector<std::vector<ExpectedDump>> expected_;  // of the raw parts of each area
  std::string file_;                                 // that grows
  size_t dumps_ = 0;                                 // of the area
};

}  // namespace client

#endif
