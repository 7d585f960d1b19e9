#include <errno.h>
#include <string.h>

#include "base/chain.h"
#include "base/directory_change.h"
#include "base/flash_areas.h"
#include "base/owners.h"
#include "tarvio/archive.h"
#include "tarvio/backup.h"
#include "tarvio/tbx.h"
#include "util/log_macros.h"
#include "util/operand.h"
#include "util/tool_command.h"
#include "util/tq_flash_observer.h"

namespace {

using tarvio::find_flash_area;
using tarvio::FlashArea;
using tarvio::FlashStep;
using tarvio::FlashWork;
using tarvio::kFlashAreas;
using tarvio::kHibernationInfo;

// The first area whose name occurs in the line (oddity 148). A line without any means the boot
// loader, as in a backup (oddity 140).
const FlashArea& area_of(const char* line) {
  const FlashArea* const area =
      find_flash_area([=](const FlashArea& each) { return strstr(line, each.name) != nullptr; });
  return area == nullptr ? kFlashAreas.front() : *area;
}

const char* name_of(int image_type) {
  const FlashArea* const area =
      find_flash_area([=](const FlashArea& each) { return each.type == image_type; });
  return area == nullptr ? nullptr : area->name;
}

int extract(const char* package, const char* file) {
  if (*package == '\0') return 0;
  FlashStep step(TQ_FLASH_UNPACK, file);
  const int result = step.end(tq_extract_from_ar(package, file));
  if (result != 0) TQ_DEBUG("cannot extract image file %s from %s", file, package);
  return result;
}

int write_image(const char* image_file, const char* device, int length) {
  const int result = tq_restore_flash_image(image_file, device, 0, length);
  if (result != 0) TQ_DEBUG("cannot restore image filee %s to %s", image_file, device);
  return result;
}

// The message names the area's own file and device, and only an information block that is not there
// fails the area (oddity 151).
int restore_hibernation_info(const char* package, const char* image_file, const char* device) {
  const int extracted = extract(package, kHibernationInfo.file);
  if (extracted != 0) return extracted;
  if (tq_restore_flash_image(kHibernationInfo.file, kHibernationInfo.device, kHibernationInfo.start,
                             kHibernationInfo.erased_bytes) != 0) {
    TQ_DEBUG("cannot restore image filee %s to %s", image_file, device);  // (oddity 4)
  }
  return 0;
}

// Whether every file can be extracted: the call fails before the first area is erased rather than
// after.
bool can_be_unpacked(const char* package, const tq_list_t* lines) {
  for (const char* line : tarvio::Elements<char>(lines)) {
    const char* const file = longest_file(area_of(line));
    if (!tarvio::ToolCommand("ar xv %s %s 2>&1", package, file).fits()) return false;
  }
  return true;
}

int detect(const char* package, int32_t* category, tq_list_t* lines) {
  FlashStep step(TQ_FLASH_CONTROLS, package);
  if (FlashWork::stop() != 0) return FlashWork::stop();
  return step.end(tq_tbx_get_package_type(package, category, lines));
}

void restore_line(const char* package, const char* line) {
  const FlashArea& area = area_of(line);
  TQ_DEBUG("image type %d", area.type);
  if (tq_tbx_resotore_image(package, area.file, area.target, area.bytes, area.type) != 0) {
    TQ_ERROR("restore failed %s -> %s type:%d", package, area.target, area.type);
  }
}

}  // namespace

// (oddity 150)
int tq_tbx_resotore_image(const char* package, const char* image_file, const char* device,
                          int length, int image_type) {
  if (package == nullptr || image_file == nullptr || device == nullptr) return EINVAL;
  TQ_DEBUG("tbx restore image %s %s->%s %d ", package, image_file, device, image_type);
  const int refused = tarvio::check_operand(TQ_HERE, "tq_tbx_resotore_image", package);
  if (refused != 0) return refused;
  const FlashWork work(name_of(image_type));
  if (image_type == TQ_IMAGE_HIBERNATION) {
    const int result = restore_hibernation_info(package, image_file, device);
    if (result != 0) return result;
  }
  (void)extract(package, image_file);  // a file that is there already is written (oddity 152)
  return write_image(image_file, device, length);
}

int tq_tbx_restore(const char* package, const char* workdir) {
  if (package == nullptr || workdir == nullptr) return EINVAL;
  const tarvio::DirectoryChange directory(workdir);
  if (directory.error() != 0) return directory.error();
  const tarvio::StringList lines(tq_list_create());
  if (lines == nullptr) return ENOMEM;
  const FlashWork work;
  int32_t category = TQ_TBX_TYPE_IMAGE;
  const int detected = detect(package, &category, lines.get());
  if (detected != 0) return detected;
  if (category != TQ_TBX_TYPE_IMAGE) {
    TQ_INFO("File %s is not image", package);
    return EINVAL;
  }
  TQ_DEBUG("found %d images ", tq_list_size(lines.get()));
  if (!can_be_unpacked(package, lines.get())) {
    TQ_WARNING("the name of the image package is too long: %s", package);
    return ENAMETOOLONG;
  }
  // Only the log has an area that fails, so that the others are written all the same (oddity 149).
  for (const char* line : tarvio::Elements<char>(lines.get())) {
    if (FlashWork::stop() == 0) restore_line(package, line);
  }
  return FlashWork::stop();
}
