// The folders and the free space that work on the flash memory needs.
#ifndef TARVIO_CLIENT_FLASH_SPACE_H
#define TARVIO_CLIENT_FLASH_SPACE_H

#include <cstdint>
#include <string>

namespace client {

// The folder that a file is in.
std::string folder_of(const std::string& file);

// How the names of work folders begin that are made in a folder.
std::string work_folder_in(const std::string& folder);

struct Need {
  std::string folder;
  uint64_t bytes;
};

// Throws a Failure when the file systems of both folders, which may be one, lack the space.
void check_space(const Need& one, const Need& other);

}  // namespace client

#endif
