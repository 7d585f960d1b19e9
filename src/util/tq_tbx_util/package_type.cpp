#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <array>

#include "base/owners.h"
#include "tarvio/archive.h"
#include "tarvio/conf.h"
#include "tarvio/file.h"
#include "tarvio/tbx.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

namespace {

constexpr char kControlArchive[] = "./control.tar.gz";
constexpr char kTqControl[] = "./tqcontrol";
constexpr char kTarget[] = "TqDataTarget:";
constexpr size_t kPieceSize = 256;

// These codes and those of the listing of installed packages are two numberings, on purpose.
constexpr char kApplicationCategory[] = "Application";

struct Subcategory {
  const char* value;
  uint32_t code;
};
constexpr std::array<Subcategory, 11> kSubcategories = {{
    {"Application_Native", 0},
    {"Application_Java", 1},
    {"Application_Browser", 2},
    {"Application_Jsp", 3},
    {"Application_Other", 4},
    {"Image_All", 5},
    {"Image_Rootfs", 6},
    {"Image_Kernel", 7},
    {"Image_Hibernation", 8},
    {"Image_Data", 10},
    {"Image_Other", 13},
}};

// By the result of the test's call, which is 0 for every path, and not by its answer, on purpose: a
// missing file shows in the step behind.
int test_file(const char* path) {
  int32_t exists = 0;
  return tq_file_exist(path, &exists);
}

int extract_control_archive(const char* path) {
  const int tested = test_file(path);
  return tested != 0 ? tested : tq_extract_from_ar(path, kControlArchive);
}

int extract_tqcontrol() {
  const int archive_tested = test_file(kControlArchive);
  if (archive_tested != 0) {
    TQ_DEBUG("control file is not containd.");
    return archive_tested;
  }
  const int extracted = tq_extract_from_tgz(kControlArchive, kTqControl);
  if (extracted != 0) return extracted;
  const int tested = test_file(kTqControl);
  if (tested != 0) TQ_DEBUG("tqcontrol file is not containd.");
  return tested;
}

void read_type(int32_t* type) {
  const tarvio::Conf conf(tq_conf_open(kTqControl));
  if (conf == nullptr) return;
  *type = tq_tbx_conv_package_type(tq_conf_read(conf.get(), "TqPackageCategory"));
}

int collect_targets(tq_list_t* targets) {
  int32_t is_file = 0;
  tq_file_exist(kTqControl, &is_file);
  // A package may hold a pipe, which nobody would ever write into, or a link to an endless device.
  if (is_file == 0) return ENOENT;
  const tarvio::File file(fopen(kTqControl, "re"));
  if (file == nullptr) return errno;
  char line[kPieceSize];
  while (fgets(line, sizeof line, file.get()) != nullptr) {
    if (tq_str_startwith(line, kTarget) == 0) continue;
    char* copy = nullptr;
    tq_strdup(&copy, line);
    if (copy == nullptr || tq_list_add(targets, copy) != 0) {
      free(copy);
      return ENOMEM;
    }
    TQ_DEBUG("found image destination: %s", line);
  }
  return 0;
}

}  // namespace

int32_t tq_tbx_conv_package_type(const char* category) {
  return tq_str_equals(category, kApplicationCategory) != 0 ? TQ_TBX_TYPE_APPLICATION
                                                            : TQ_TBX_TYPE_IMAGE;
}

uint32_t tq_tbx_conv_package_subtype(const char* subcategory) {
  for (const Subcategory& row : kSubcategories) {
    if (tq_str_equals(subcategory, row.value) != 0) return row.code;
  }
  return TQ_TBX_SUBTYPE_NONE;
}

int tq_tbx_get_package_type(const char* path, int32_t* type, tq_list_t* targets) {
  if (path == nullptr || type == nullptr || targets == nullptr) return EINVAL;
  TQ_DEBUG("check tbx file image %s", path);
  const bool is_given = *path != '\0';
  const int unpacked = is_given ? extract_control_archive(path) : 0;
  if (unpacked != 0) return unpacked;
  const int extracted = extract_tqcontrol();
  if (extracted != 0) return extracted;

  read_type(type);
  const int collected = collect_targets(targets);
  if (collected != 0) return collected;
  (void)tq_file_delete(kTqControl);
  if (is_given) (void)tq_file_delete(kControlArchive);
  return 0;
}
