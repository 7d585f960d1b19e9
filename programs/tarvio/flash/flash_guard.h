// What keeps a piece of work on the flash memory from disturbing something else.
#ifndef TARVIO_CLIENT_FLASH_FLASH_GUARD_H
#define TARVIO_CLIENT_FLASH_FLASH_GUARD_H

#include <string>

#include "base/flash_areas.h"
#include "base/owners.h"

namespace client {

// One backup or restore at a time on a device.
class FlashLock {
 public:
  // Throws a Failure when another one is held, and not only by what is about to end.
  FlashLock();

  // In a new process: the tools that it starts hold the lock as well, so that it is not free before
  // the last one has ended, even when this program was killed.
  void share_with_tools() const;

 private:
  tarvio::Fd file_;
};

// In a new process: what it mounts is seen by it and its tools only, and goes with them. Throws a
// Failure.
void keep_mounts_private();

// Why an area should not be written while the system runs; empty when nothing uses it.
std::string use_of(const tarvio::FlashArea& area);

}  // namespace client

#endif
