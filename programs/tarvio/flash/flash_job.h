// Calls into the library that work on the flash memory.
#ifndef TARVIO_CLIENT_FLASH_FLASH_JOB_H
#define TARVIO_CLIENT_FLASH_FLASH_JOB_H

#include <cstdint>
#include <functional>
#include <string>

#include "flash/area_parts.h"
#include "flash/flash_guard.h"
#include "flash/flash_record.h"
#include "process/child.h"
#include "terminal/progress.h"

namespace client {

class FlashJobs {
 public:
  FlashJobs(const WorkDirectory& directory, const FlashLock& lock, Progress& progress,
            double seconds)
      : directory_(directory), lock_(lock), progress_(progress), seconds_(seconds) {}

  // Runs a call in a process of its own and hands on what it reports; the progress's tick comes now
  // and then. Throws a Failure with the call's result when that is not 0.
  void run(const char* tools, const std::function<int()>& call,
           const std::function<void(const FlashRecord&)>& on_record,
           const std::function<void()>& on_tick) const;

  // How much the good blocks of a device hold, by nanddump's number of bad ones. Throws a Failure
  // for a device that cannot be read.
  [[nodiscard]] uint64_t good_bytes(const char* device) const;

  // Dumps a part again, up to the end of the device, into a file of the directory, whose path is
  // returned. Throws a Failure.
  [[nodiscard]] std::string dump(const AreaPart& part) const;

  [[nodiscard]] const WorkDirectory& directory() const { return directory_; }
  [[nodiscard]] Progress& progress() const { return progress_; }

 private:
  const WorkDirectory& directory_;
  const FlashLock& lock_;
  Progress& progress_;
  double seconds_;
};

struct DeviceSize {
  uint64_t bytes;
  uint64_t page_bytes;  // what can be written at once
};

// Throws a Failure.
DeviceSize size_of_device(const char* device);

}  // namespace client

#endif
