#include "flash/area_parts.h"

namespace client {

const FlashArea* find_area(std::string_view name) {
  return tarvio::find_flash_area([=](const FlashArea& area) { return area.name == name; });
}

std::vector<AreaPart> parts_of(const FlashArea& area) {
  std::vector<AreaPart> parts;
  if (area.type == TQ_IMAGE_HIBERNATION) {
    const auto& info = tarvio::kHibernationInfo;
    parts.push_back({info.file, info.device, static_cast<unsigned>(info.start),
                     static_cast<uint64_t>(info.backup_bytes),
                     static_cast<uint64_t>(info.erased_bytes)});
  }
  parts.push_back({area.file, area.target, 0, static_cast<uint64_t>(area.backup_bytes),
                   static_cast<uint64_t>(area.bytes)});
  return parts;
}

const char* member_of(const AreaPart& part) { return part.file + 2; }

const char* method_of(const FlashArea& area) { return area.is_jffs2 ? "file system" : "raw"; }

}  // namespace client
