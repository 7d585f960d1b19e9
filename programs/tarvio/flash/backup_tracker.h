// Follows the library's backup of some areas.
#ifndef TARVIO_CLIENT_FLASH_BACKUP_TRACKER_H
#define TARVIO_CLIENT_FLASH_BACKUP_TRACKER_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "flash/area_parts.h"
#include "flash/flash_job.h"
#include "flash/flash_record.h"

namespace client {

// An area of a backup.
struct SavedArea {
  std::string name;
  uint64_t size_bytes = 0;
  bool is_verified = false;
  std::string failure = {};  // empty when it was saved
};

struct ExpectedDump {
  uint64_t bytes;  // at least
  uint64_t end;    // on the device, of what is kept
};

class BackupTracker {
 public:
  // Notes in `saved` what became of each area as far as it was tried. Throws a Failure for a device
  // that cannot be read.
  BackupTracker(const std::vector<const FlashArea*>& areas, const FlashJobs& jobs,
                std::vector<SavedArea>& saved);

  // Throws a Failure, also for what the library's result hides.
  void run(const std::string& package);

 private:
  [[nodiscard]] const FlashArea& area() const { return *areas_.at(saved_.size() - 1); }
  [[nodiscard]] const ExpectedDump& expected_dump() const {
    return expected_.at(saved_.size() - 1).at(dumps_);
  }
  void on_record(const FlashRecord& record);
  void on_controls(const FlashRecord& record);
  void on_begin(const FlashRecord& record);
  void on_end(const FlashRecord& record);
  void begin_area();
  void finish_area();
  void check_line(const FlashRecord& record) const;
  void tick();
  [[noreturn]] void fail_for_area(const Failure& failure);

  const std::vector<const FlashArea*>& areas_;
  const FlashJobs& jobs_;
  std::vector<SavedArea>& saved_;
  bool is_in_area_ = false;                          // the last one of these
  std::vector<std::vector<ExpectedDump>> expected_;  // of the raw parts of each area
  std::string file_;                                 // that grows
  size_t dumps_ = 0;                                 // of the area
};

// Where on the device nanddump could not read a page, if it says so in this line. It goes on after
// such a page, with bytes that are not those written, and ends well.
std::optional<uint64_t> unreadable_place(std::string_view line);

}  // namespace client

#endif
