#include "util/tq_tbx_util/system_version.h"

#include <stdio.h>
#include <string.h>
#include <sys/mount.h>

#include "base/offline_root.h"
#include "base/owners.h"
#include "tarvio/opkg.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

namespace tarvio {
namespace {

constexpr char kWritableDevice[] = "/dev/mtdblock5";
constexpr char kVersionFile[] = "/etc/systemversion";
constexpr char kInfoDirectory[] = "/usr/lib/opkg/info/";
constexpr size_t kNameSize = 4096;
constexpr size_t kLineSize = 256;
constexpr size_t kMinKeyLength = 7;

CString joined(const char* first, const char* second, const char* third = "",
               const char* fourth = "") {
  char* text = nullptr;
  const int length = asprintf(&text, "%s%s%s%s", first, second, third, fourth);
  return CString(length < 0 ? nullptr : text);
}

File open_to_read(const char* path) {
  File file(fopen(path, "re"));
  if (file == nullptr) TQ_ERROR("version get failed.");
  return file;
}

// Null when a line, which is cut into words, does not hold the version (oddity 147).
CString version_in(char* line) {
  constexpr char kDelimiters[] = ": ";
  if (strstr(line, kDelimiters) == nullptr) return nullptr;
  char* rest = nullptr;
  const char* const key = strtok_r(line, kDelimiters, &rest);
  const char* const value = strtok_r(nullptr, kDelimiters, &rest);
  const bool is_version =
      value != nullptr && strlen(key) >= kMinKeyLength && strstr(key, "Version") != nullptr;
  return is_version ? copy_of(value) : nullptr;
}

CString version_of_package(const char* name, const char* root) {
  const CString path = joined(root, kInfoDirectory, name, ".control");
  if (path == nullptr) return nullptr;
  TQ_DEBUG("version of the package file is %s", path.get());
  const File control = open_to_read(path.get());
  if (control == nullptr) return nullptr;

  CString version;
  char line[kLineSize];
  while (fgets(line, sizeof line, control.get()) != nullptr) {
    tq_chop(line);
    TQ_DEBUG("read conf line %s ", line);
    CString found = version_in(line);
    if (found == nullptr) continue;
    TQ_DEBUG("version of the system is  %s", found.get());
    version = std::move(found);  // the last one counts (oddity 147)
  }
  return version;
}

CString version_below(const char* root) {
  const CString path = joined(root, kVersionFile);
  if (path == nullptr) return nullptr;
  const File file = open_to_read(path.get());
  if (file == nullptr) return nullptr;
  char name[kNameSize] = "";
  if (fgets(name, sizeof name, file.get()) == nullptr) name[0] = '\0';
  tq_chop(name);
  TQ_DEBUG("version of the package name is %s", name);
  return version_of_package(name, root);
}

}  // namespace

CString read_system_version() {
  TQ_DEBUG("get tbx version start");
  int online = 0;
  CString version;
  if (tq_is_boot_online(&online) == 0) {
    if (online == 0) {
      TQ_DEBUG("mount writable area because of off line.");
      // When it fails the version is not found, and the backup goes on without it.
      (void)mount(kWritableDevice, kOfflineRoot, "jffs2", MS_NOEXEC, nullptr);
    }
    version = version_below(online == 0 ? kOfflineRoot : "");
  }
  if (online == 0) {
    TQ_DEBUG("umount %s ", kOfflineRoot);
    (void)umount(kOfflineRoot);
  }
  return version;
}

}  // namespace tarvio
