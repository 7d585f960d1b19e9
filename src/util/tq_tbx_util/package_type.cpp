#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "base/file_type.h"
#include "base/line_reader.h"
#include "base/list_appender.h"
#include "base/owners.h"
#include "tarvio/archive.h"
#include "tarvio/conf.h"
#include "tarvio/file.h"
#include "tarvio/tbx.h"
#include "tarvio/text.h"
#include "util/log_macros.h"
#include "util/operand.h"

namespace {

constexpr char kControlArchive[] = "./control.tar.gz";
constexpr char kTqControl[] = "./tqcontrol";
constexpr char kTarget[] = "TqDataTarget:";

// The listing of installed packages has other codes (oddity 63). Unknown names are not errors
// (oddity 64).
constexpr std::string_view kApplicationCategory = "Application";

struct Subcategory {
  std::string_view value;
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

// By the result of the test, which is 0 for every path, and not by its answer: a missing file shows
// in the extraction that follows (oddity 85).
int test_file(const char* path) {
  int32_t exists = 0;
  return tq_file_exist(path, &exists);
}

int extract_control_archive(const char* package) {
  if (*package == '\0') return 0;
  const int tested = test_file(package);
  return tested != 0 ? tested : tq_extract_from_ar(package, kControlArchive);
}

int extract_tqcontrol() {
  const int archive_tested = test_file(kControlArchive);
  if (archive_tested != 0) {
    TQ_DEBUG("control file is not containd.");  // (oddity 4)
    return archive_tested;
  }
  const int extracted = tq_extract_from_tgz(kControlArchive, kTqControl);
  if (extracted != 0) return extracted;
  const int tested = test_file(kTqControl);
  if (tested != 0) TQ_DEBUG("tqcontrol file is not containd.");
  return tested;
}

std::string_view text_of(const char* text) { return text == nullptr ? "" : text; }

// Leaves the type as it is when the file holds no pair (oddity 87).
void read_type(int32_t* type) {
  const tarvio::Conf conf(tq_conf_open(kTqControl));
  if (conf == nullptr) return;
  *type = tq_tbx_conv_package_type(tq_conf_read(conf.get(), "TqPackageCategory"));
}

// Whole lines, with key and line end (oddity 86).
int collect_targets(tq_list_t* targets) {
  // A package may hold a pipe, which nobody would ever write into, or a link to an endless device.
  if (!tarvio::is_control_file(kTqControl)) return ENOENT;
  const tarvio::File file(fopen(kTqControl, "re"));
  if (file == nullptr) return errno;
  tarvio::ListAppender appender(*targets);
  tarvio::PieceReader line(fileno(file.get()));
  while (line.next()) {
    if (tq_str_startwith(line.text(), kTarget) == 0) continue;
    if (!appender.append_copy(line.text())) return ENOMEM;
    TQ_DEBUG("found image destination: %s", line.text());
  }
  return 0;
}

}  // namespace

int32_t tq_tbx_conv_package_type(const char* category) {
  return text_of(category) == kApplicationCategory ? TQ_TBX_TYPE_APPLICATION : TQ_TBX_TYPE_IMAGE;
}

uint32_t tq_tbx_conv_package_subtype(const char* subcategory) {
  for (const Subcategory& row : kSubcategories) {
    if (text_of(subcategory) == row.value) return row.code;
  }
  return TQ_TBX_SUBTYPE_NONE;
}

int tq_tbx_get_package_type(const char* path, int32_t* type, tq_list_t* targets) {
  if (path == nullptr || type == nullptr || targets == nullptr) return EINVAL;
  TQ_DEBUG("check tbx file image %s", path);
  const int refused = tarvio::check_operand(TQ_HERE, "tq_tbx_get_package_type", path);
  if (refused != 0) return refused;
  const int unpacked = extract_control_archive(path);
  if (unpacked != 0) return unpacked;
  const int extracted = extract_tqcontrol();
  if (extracted != 0) return extracted;
  read_type(type);
  const int collected = collect_targets(targets);
  if (collected != 0) return collected;
  (void)unlink(kTqControl);
  if (*path != '\0') (void)unlink(kControlArchive);
  return 0;
}
