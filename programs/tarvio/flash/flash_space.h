// The directories and the free space that work on the flash memory needs.
#ifndef TARVIO_CLIENT_FLASH_FLASH_SPACE_H
#define TARVIO_CLIENT_FLASH_FLASH_SPACE_H

#include <cstdint>
#include <string>

namespace client {

// How the names of the work directories in a directory begin.
std::string work_directory_in(const std::string& directory);

struct Need {
  std::string directory;
  uint64_t bytes;
};

// Throws a Failure when the file systems of both directories, which may be one, lack the space.
void check_space(const Need& one, const Need& other);

}  // namespace client

#endif
