// The flash areas of the device, which backup and restore share.
#ifndef TARVIO_SRC_BASE_FLASH_AREAS_H
#define TARVIO_SRC_BASE_FLASH_AREAS_H

#include <array>

#include "tarvio/nand.h"

namespace tarvio {

inline constexpr int kEraseBlockBytes = 0x20000;

struct FlashArea {
  const char* name;
  int type;            // TQ_IMAGE_...
  bool is_jffs2;       // rebuilt from its mounted tree, where the others are dumped as they are
  const char* file;    // in the image package and in the work directory
  const char* source;  // what a backup reads
  int backup_bytes;    // what a backup keeps
  const char* target;  // what a restore writes
  int bytes;           // the whole area
  const char* target_line;
};

// A backup reads the two file systems through their block devices and keeps less than the whole of
// two areas; a restore writes everything through the character devices (oddity 141).
inline constexpr std::array<FlashArea, 6> kFlashAreas = {{
    {"bootloader", TQ_IMAGE_BOOTLOADER, false, "./boot",  //
     "/dev/mtd1", 0x40000, "/dev/mtd1", 0x40000, "TqDataTarget: bootloader\n"},
    {"bootsetting", TQ_IMAGE_BOOTSETTING, false, "./bootsetting",  //
     "/dev/mtd2", 0x1a000, "/dev/mtd2", 0x1a000, "TqDataTarget: bootsetting\n"},
    {"kernel", TQ_IMAGE_KERNEL, false, "./uImage",  //
     "/dev/mtd3", 0x1e0000, "/dev/mtd3", 0x200000, "TqDataTarget: kernel\n"},
    {"rootfs", TQ_IMAGE_ROOTFS, true, "./rootfs",  //
     "/dev/mtdblock4", 0x3c00000, "/dev/mtd4", 0x3c00000, "TqDataTarget: rootfs\n"},
    {"writable", TQ_IMAGE_WRITABLE, true, "./writable-region",  //
     "/dev/mtdblock5", 0x4000000, "/dev/mtd5", 0x4000000, "TqDataTarget: writable\n"},
    {"hibernation", TQ_IMAGE_HIBERNATION, false, "./hibernation",  //
     "/dev/mtd6", 0x7380000, "/dev/mtd6", 0x8000000, "TqDataTarget: hibernation\n"},
}};

// The first area of which a condition holds; null when it holds of none.
template <typename Condition>
const FlashArea* find_flash_area(Condition holds) {
  for (const FlashArea& area : kFlashAreas) {
    if (holds(area)) return &area;
  }
  return nullptr;
}

// The second file of the hibernation area. A restore erases more than a backup saves (oddity 142).
inline constexpr struct {
  const char* file;
  const char* device;
  int start;
  int backup_bytes;
  int erased_bytes;
} kHibernationInfo = {"./hibernationinfo", "/dev/mtd2", 0x120000, kEraseBlockBytes,
                      4 * kEraseBlockBytes};

// The longer one when an area has two files.
inline const char* longest_file(const FlashArea& area) {
  return area.type == TQ_IMAGE_HIBERNATION ? kHibernationInfo.file : area.file;
}

}  // namespace tarvio

#endif
