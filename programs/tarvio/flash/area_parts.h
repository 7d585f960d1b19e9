// The areas of the flash memory, and the parts of the devices that they are made of.
#ifndef TARVIO_CLIENT_FLASH_AREA_PARTS_H
#define TARVIO_CLIENT_FLASH_AREA_PARTS_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "base/flash_areas.h"

namespace client {

using tarvio::FlashArea;

// A file of an area in the image package, and its place in the flash memory. All areas have one but
// the hibernation area, which has two.
struct AreaPart {
  const char* file;        // in the work directory, "./NAME"
  const char* device;      // the character device, from which it can be dumped
  unsigned start;          // bytes from the beginning of the device
  uint64_t backup_bytes;   // what a backup of a raw part keeps
  uint64_t largest_bytes;  // what a restore has room for
};

// Null for a name that no area has.
const FlashArea* find_area(std::string_view name);

std::vector<AreaPart> parts_of(const FlashArea& area);

// The part's name in the image package.
const char* member_of(const AreaPart& part);

// How a backup saves it.
const char* method_of(const FlashArea& area);

}  // namespace client

#endif
