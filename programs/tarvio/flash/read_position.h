// How far a running tool has read a file.
#ifndef TARVIO_CLIENT_FLASH_READ_POSITION_H
#define TARVIO_CLIENT_FLASH_READ_POSITION_H

#include <cstdint>
#include <string>

namespace client {

// The furthest place of all descriptors for the file, in bytes; 0 when no process has it open.
uint64_t read_position(const std::string& path);

}  // namespace client

#endif
