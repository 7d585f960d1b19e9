// The directories and the free space that work on the flash memory needs.
#ifndef TARVIO_CLIENT_FLASH_FLASH_SPACE_H
#define TARVIO_CLIENT_FLASH_FLASH_SPACE_H

#include <cstdint>
#include <span>
#include <string>

#include "flash/area_parts.h"

namespace client {

// How the names of the work directories in a directory begin.
std::string work_directory_in(const std::string& directory);

// What a backup of areas takes at most.
struct BackupBytes {
  uint64_t work = 0;    // in the directory for intermediate files
  uint64_t target = 0;  // in that of the package
};
BackupBytes bytes_of_backup(std::span<const FlashArea* const> areas);

struct Need {
  std::string directory;
  uint64_t bytes;
};

// Throws a Failure when the file systems of both directories, which may be one, lack the space.
void check_space(const Need& one, const Need& other);

}  // namespace client

#endif
