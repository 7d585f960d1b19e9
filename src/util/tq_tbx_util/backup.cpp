#include <errno.h>
#include <libgen.h>
#include <stdio.h>
#include <string.h>

#include <span>
#include <string_view>

#include "base/chain.h"
#include "base/directory_change.h"
#include "base/flash_areas.h"
#include "base/owners.h"
#include "tarvio/archive.h"
#include "tarvio/backup.h"
#include "tarvio/file.h"
#include "util/log_macros.h"
#include "util/operand.h"
#include "util/tool_command.h"
#include "util/tq_flash_observer.h"
#include "util/tq_tbx_util/system_version.h"

namespace {

constexpr char kNoName[] = "SystemImage";
constexpr char kControl[] = "./control";
constexpr char kTqControl[] = "./tqcontrol";
constexpr char kControlArchive[] = "./control.tar.gz";

using tarvio::FlashArea;
using tarvio::FlashStep;
using tarvio::FlashWork;
using tarvio::kFlashAreas;
using tarvio::kHibernationInfo;

// Where the files of the areas go: no package when only the files are wanted.
struct Destination {
  const char* package;
  bool is_packed;
};

// The last component of the package's path; null when memory runs out.
tarvio::CString package_name(const char* dest) {
  const tarvio::CString path = tarvio::copy_of(dest == nullptr || *dest == '\0' ? kNoName : dest);
  if (path == nullptr) return nullptr;
  return tarvio::copy_of(std::string_view(basename(path.get())));
}

// An unknown name means the first area, the boot loader (oddity 140).
const FlashArea& area_of(const char* name) {
  const FlashArea* const area =
      tarvio::find_flash_area([=](const FlashArea& each) { return strcmp(name, each.name) == 0; });
  return area == nullptr ? kFlashAreas.front() : *area;
}

bool can_be_packed(const tq_list_t* areas, const char* package) {
  const auto fits = [package](const char* file) {
    return tarvio::ToolCommand("ar rv %s %s 2>&1", package, file).fits();
  };
  for (const char* name : tarvio::Elements<char>(areas)) {
    if (!fits(longest_file(area_of(name)))) return false;
  }
  return fits(kControlArchive);
}

// Whether every file can be packed: the call fails before the first dump rather than after the
// last.
int check_package(const tq_list_t* areas, const char* package) {
  const int refused = tarvio::check_operand(TQ_HERE, "tq_tbx_backup_areas", package);
  if (refused != 0) return refused;
  if (can_be_packed(areas, package)) return 0;
  TQ_WARNING("the name of the image package is too long: %s", package);
  return ENAMETOOLONG;
}

void append_target(const FlashArea& area) {
  TQ_DEBUG("append image info to the tqcontrol file %d", area.type);
  if (area.type == TQ_IMAGE_KERNEL) TQ_DEBUG("create kernel image control file");
  const tarvio::File file(fopen(kTqControl, "ae"));
  if (file != nullptr) (void)fputs(area.target_line, file.get());
}

int save(const FlashArea& area) {
  if (area.is_jffs2) return tq_backup_jffs2(area.source, area.file);
  if (area.type == TQ_IMAGE_HIBERNATION) {
    (void)tq_backup_flash_image(kHibernationInfo.device, kHibernationInfo.file,
                                kHibernationInfo.start, kHibernationInfo.backup_bytes);
  }
  return tq_backup_flash_image(area.source, area.file, 0, static_cast<unsigned>(area.backup_bytes));
}

int pack(const char* package, const char* file) {
  FlashStep step(TQ_FLASH_PACK, file, nullptr, 0, FlashStep::kOfFile);
  return step.end(tq_archive_ar(package, 1, &file));
}

int pack_hibernation_info(const char* package) {
  TQ_DEBUG("archive resume info");
  const int packed = pack(package, kHibernationInfo.file);
  if (packed != 0) return packed;
  TQ_DEBUG("unlink - %s", kHibernationInfo.file);
  (void)tq_file_delete(kHibernationInfo.file);
  return 0;
}

int back_up(const FlashArea& area, const Destination& to) {
  const FlashWork work(area.name);
  append_target(area);
  TQ_ERROR("print backup files %s -> %s ", area.source, area.file);  // (oddity 145)
  TQ_DEBUG("tbx backup %s -> %s  len=0x%x t=%d", area.source, area.file,
           static_cast<unsigned>(area.backup_bytes), area.type);

  const bool is_hibernation = area.type == TQ_IMAGE_HIBERNATION;
  int result = save(area);
  // In place of the dump's result: a failed dump of this area goes unnoticed (oddity 143).
  if (is_hibernation && to.is_packed) result = pack_hibernation_info(to.package);
  if (result != 0) {
    if (is_hibernation) {
      TQ_ERROR("backup failed failed %s", to.package);  // (oddity 4)
    } else {
      TQ_ERROR("backup failed - %s", area.source);
    }
    return result;
  }
  if (to.is_packed) {
    TQ_DEBUG("archive area - %s", area.file);
    const int packed = pack(to.package, area.file);
    if (packed != 0) {
      TQ_ERROR("archive failed %s", to.package);
      return packed;
    }
  }
  TQ_DEBUG("tbx backup done.");
  return 0;
}

int back_up_all(const tq_list_t* areas, const Destination& to) {
  for (const char* name : tarvio::Elements<char>(areas)) {
    const FlashArea& area = area_of(name);
    TQ_DEBUG("now handling img's index %d", static_cast<int>(&area - kFlashAreas.data()));
    const int result = back_up(area, to);
    if (result != 0) {  // the files so far stay (oddity 154)
      TQ_DEBUG("tbx backup done.");
      TQ_ERROR("backup failed %s->%s", area.source, area.file);
      return result;
    }
  }
  return 0;
}

int archive_controls(std::span<const char* const> files) {
  FlashStep step(TQ_FLASH_CONTROLS, kControlArchive);
  return step.end(tq_archive_tgz("control.tar.gz", static_cast<int>(files.size()), files.data()));
}

int finish(const Destination& to) {
  const char* const files[] = {kControl, kTqControl};
  const int archived = archive_controls(files);
  if (archived != 0) return archived;
  for (const char* file : files) (void)tq_file_delete(file);
  if (!to.is_packed) return 0;
  const int packed = pack(to.package, kControlArchive);
  if (packed == 0) (void)tq_file_delete(kControlArchive);
  return packed;
}

tarvio::CString system_version() {
  FlashStep step(TQ_FLASH_VERSION);
  if (FlashWork::stop() != 0) return nullptr;
  tarvio::CString version = tarvio::read_system_version();
  step.end(version == nullptr ? ENOENT : 0);
  return version;
}

// A failure shows when the files are archived.
void create_controls(const char* name, const char* version) {
  FlashStep step(TQ_FLASH_CONTROLS, kControl);
  if (FlashWork::stop() == 0) step.end(tq_create_image_controls(name, version));
}

}  // namespace

int tq_tbx_backup_areas(tq_list_t* areas, const char* workdir, const char* dest, int archive) {
  if (areas == nullptr || workdir == nullptr || (archive != 0 && dest == nullptr)) return EINVAL;
  const int refused = archive == 0 ? 0 : check_package(areas, dest);
  if (refused != 0) return refused;
  if (dest != nullptr) {
    TQ_DEBUG("workdir - %s , dest file - %s", workdir, dest);
  } else {
    TQ_DEBUG("workdir - %s , archive - %d", workdir, archive);
  }
  const tarvio::CString name = package_name(dest);
  if (name == nullptr) return ENOMEM;
  TQ_DEBUG("get package name %s", name.get());
  const FlashWork work;
  const tarvio::CString version = system_version();
  TQ_DEBUG("get package version %s", version == nullptr ? "" : version.get());

  TQ_DEBUG("change dir %s", workdir);
  const tarvio::DirectoryChange directory(workdir);
  if (directory.error() != 0) {
    TQ_ERROR("can't change directory %s", workdir);
    return FlashWork::result(directory.error());
  }
  create_controls(name.get(), version.get());
  if (FlashWork::stop() != 0) return FlashWork::stop();
  const Destination to = {.package = dest, .is_packed = archive != 0};
  const int result = back_up_all(areas, to);
  return result != 0 ? result : finish(to);
}
