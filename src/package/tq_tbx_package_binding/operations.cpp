#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/list_appender.h"
#include "base/owners.h"
#include "tarvio/file.h"
#include "tarvio/opkg.h"
#include "tarvio/package.h"
#include "tarvio/tbx.h"
#include "tarvio/text.h"
#include "util/log_macros.h"
#include "util/operand.h"

using tarvio::CString;

namespace {

constexpr char kInstall[] = "tq_tbx_install";
constexpr char kRemove[] = "tq_tbx_remove";
constexpr char kFiles[] = "tq_tbx_files";
constexpr char kPackageExtension[] = ".tbx";
constexpr char kOpkgExtension[] = ".ipk";
constexpr char kInstallForced[] =
    "--force-depends --force-maintainer --force-reinstall --force-overwrite --force-downgrade";
constexpr char kRemoveForced[] = "--force-depends";
constexpr size_t kFilesLineSize = 4096;

int out_of_memory(const char* function) {
  TQ_DEBUG("%s: malloc error ", function);
  return ENOMEM;
}

// Copies what a variable of the environment holds, because another thread may change it meanwhile.
// False when memory runs out.
bool read_variable(const char* variable, CString& copy) {
  const char* const value = getenv(variable);
  copy = tarvio::copy_of(value);
  return value == nullptr || copy != nullptr;
}

// Runs opkg with the options from the environment: they are the administrator's, so they go to the
// shell as they are. With force, the fixed force options take the place of the environment's.
int run_opkg(const char* function, const char* word, int force, const char* forced,
             const char* target) {
  CString options;
  if (!read_variable("OPKG_OPTIONS", options)) return out_of_memory(function);
  if (options != nullptr) TQ_DEBUG("%s: options=[%s] ", function, options.get());
  CString force_options;
  if (!read_variable("OPKG_FORCE_OPTIONS", force_options)) return out_of_memory(function);
  if (force_options != nullptr) TQ_DEBUG("%s: force options=[%s] ", function, force_options.get());
  return tq_opkg_run_command_with_options(word, options.get(),
                                          force != 0 ? forced : force_options.get(), target);
}

// Removes the file as well, even one that could not be written whole.
struct RemoveFile {
  void operator()(char* path) const noexcept {
    (void)tq_file_delete(path);
    free(path);
  }
};
using TemporaryFile = std::unique_ptr<char, RemoveFile>;

}  // namespace

int tq_tbx_install(const char* path, int force) {
  if (path == nullptr) {
    TQ_DEBUG("%s: opkg install [(null)] ", kInstall);
    return -1;  // not an errno value (oddity 77)
  }
  if (access(path, R_OK) != 0) {
    const int error = errno;
    TQ_DEBUG("Can not access %s.", path);
    return error;
  }
  const int refused = tarvio::check_operand(TQ_HERE, kInstall, path);
  if (refused != 0) return refused;
  if (strstr(path, kPackageExtension) == nullptr) {
    TQ_WARNING("%s: %s: needs .tbx in its name, or opkg's copy would overwrite it", kInstall, path);
    return EINVAL;
  }

  CString opkg_path = tarvio::copy_of(path);
  if (opkg_path == nullptr) return out_of_memory(kInstall);
  // Everywhere in the path (oddity 78). A file that has this name already is lost (oddity 79).
  tq_replace_string(opkg_path.get(), kPackageExtension, kOpkgExtension);
  const TemporaryFile opkg_file(opkg_path.release());
  const int copied = tq_copy_file(path, opkg_file.get());
  if (copied != 0) {
    TQ_DEBUG("%s: ipk file create error ", kInstall);
    return copied;
  }
  return run_opkg(kInstall, "install", force, kInstallForced, opkg_file.get());
}

int tq_tbx_remove(const char* name, int force) {
  if (name == nullptr) {
    TQ_DEBUG("%s: opkg remove [(null)] ", kRemove);
    return -1;  // (oddity 77)
  }
  const int refused = tarvio::check_operand(TQ_HERE, kRemove, name);
  if (refused != 0) return refused;
  return run_opkg(kRemove, "remove", force, kRemoveForced, name);
}

int tq_tbx_files(const char* name, tq_list_t* files) {
  if (name == nullptr) return -1;  // (oddity 77)
  if (files == nullptr) return EINVAL;
  const int refused = tarvio::check_operand(TQ_HERE, kFiles, name);
  if (refused != 0) return refused;

  // Neither the options nor the offline root belong to this command (oddity 80).
  char command[kFilesLineSize];
  const int length = snprintf(command, sizeof command, "%s %s %s", "opkg", "files", name);
  if (static_cast<size_t>(length) >= sizeof command) {
    TQ_WARNING("%s: command line of %d characters is too long, at most %zu", kFiles, length,
               sizeof command - 1);
    return ENAMETOOLONG;
  }
  const tarvio::StringList lines(tq_list_create());
  if (lines == nullptr) return ENOMEM;
  const int result = tq_opkg_run_command(command, lines.get());
  if (result != 0 || lines->head == nullptr) return result;

  const CString heading(static_cast<char*>(lines->head->element));  // not a file (oddity 81)
  (void)tq_list_remove(lines.get(), 0);
  tarvio::ListAppender(*files).append_all(*lines);
  return 0;
}
