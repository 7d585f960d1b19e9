// Whether an image package holds what it should.
#ifndef TARVIO_CLIENT_FLASH_IMAGE_CHECK_H
#define TARVIO_CLIENT_FLASH_IMAGE_CHECK_H

#include <cstdint>

#include "flash/area_parts.h"
#include "flash/flash_job.h"
#include "packages/ar_archive.h"

namespace client {

// All throw a Failure that says what is wrong, and return the bytes of the area in the package.

// An area that was just saved.
uint64_t check_saved(const ArchiveFile& package, const FlashArea& area);

// An area before it is restored: whether all of it is there and fits into the good blocks.
uint64_t check_to_restore(const ArchiveFile& package, const FlashArea& area, const FlashJobs& jobs);

// Reads the flash memory of an area again and compares.
uint64_t verify(const ArchiveFile& package, const FlashArea& area, const FlashJobs& jobs);

}  // namespace client

#endif
