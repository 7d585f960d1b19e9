#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/owners.h"
#include "package/tq_tbx_package_binding/operand.h"
#include "tarvio/file.h"
#include "tarvio/opkg.h"
#include "tarvio/package.h"
#include "tarvio/tbx.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

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

int refuse(const char* function, const char* operand, const char* why) {
  TQ_WARNING("%s: %s: %s", function, operand, why);
  return EINVAL;
}

int refuse_operand(const char* function, const char* operand) {
  return refuse(function, operand,
                "has a character that means something to the shell, or begins like an option");
}

int out_of_memory(const char* function) {
  TQ_DEBUG("%s: malloc error ", function);
  return ENOMEM;
}

tarvio::CString copy_of(const char* string) {
  char* copy = nullptr;
  tq_strdup(&copy, string);
  return tarvio::CString(copy);
}

// Options of opkg, from the environment: the administrator's, so they go to the shell as they are.
// Copies, because another thread may change the environment meanwhile.
struct OpkgOptions {
  tarvio::CString general;
  tarvio::CString force;
};

int read_options(const char* function, OpkgOptions& options) {
  if (const char* value = getenv("OPKG_OPTIONS"); value != nullptr) {
    options.general = copy_of(value);
    if (options.general == nullptr) return out_of_memory(function);
    TQ_DEBUG("%s: options=[%s] ", function, options.general.get());
  }
  if (const char* value = getenv("OPKG_FORCE_OPTIONS"); value != nullptr) {
    options.force = copy_of(value);
    if (options.force == nullptr) return out_of_memory(function);
    TQ_DEBUG("%s: force options=[%s] ", function, options.force.get());
  }
  return 0;
}

// Runs opkg with the options from the environment. With force, the fixed force options take the
// place of the environment's.
int run_opkg(const char* function, const char* word, int force, const char* forced,
             const char* target) {
  OpkgOptions options;
  const int read = read_options(function, options);
  if (read != 0) return read;
  return tq_opkg_run_command_with_options(word, options.general.get(),
                                          force != 0 ? forced : options.force.get(), target);
}

// The copy of a package file under the name that opkg takes; removed at the end of its life, and
// also when it could not be made.
class OpkgFile {
 public:
  explicit OpkgFile(tarvio::CString path) : path_(std::move(path)) {}
  OpkgFile(const OpkgFile&) = delete;
  OpkgFile& operator=(const OpkgFile&) = delete;
  ~OpkgFile() { (void)tq_file_delete(path_.get()); }

  [[nodiscard]] int copy_from(const char* package) const {
    return tq_copy_file(package, path_.get());
  }
  [[nodiscard]] const char* path() const { return path_.get(); }

 private:
  tarvio::CString path_;
};

}  // namespace

int tq_tbx_install(const char* path, int force) {
  if (path == nullptr) {
    TQ_DEBUG("%s: opkg install [(null)] ", kInstall);
    return -1;
  }
  if (access(path, R_OK) != 0) {
    const int error = errno;
    TQ_DEBUG("Can not access %s.", path);
    return error;
  }
  if (!tarvio::is_plain_operand(path)) return refuse_operand(kInstall, path);
  if (strstr(path, kPackageExtension) == nullptr) {
    return refuse(kInstall, path, "has no .tbx in its name, so its copy for opkg would be itself");
  }

  tarvio::CString opkg_path = copy_of(path);
  if (opkg_path == nullptr) return out_of_memory(kInstall);
  tq_replace_string(opkg_path.get(), kPackageExtension, kOpkgExtension);
  const OpkgFile opkg_file(std::move(opkg_path));
  const int copied = opkg_file.copy_from(path);
  if (copied != 0) {
    TQ_DEBUG("%s: ipk file create error ", kInstall);
    return copied;
  }
  return run_opkg(kInstall, "install", force, kInstallForced, opkg_file.path());
}

int tq_tbx_remove(const char* name, int force) {
  if (name == nullptr) {
    TQ_DEBUG("%s: opkg remove [(null)] ", kRemove);
    return -1;
  }
  if (!tarvio::is_plain_operand(name)) return refuse_operand(kRemove, name);
  return run_opkg(kRemove, "remove", force, kRemoveForced, name);
}

int tq_tbx_files(const char* name, tq_list_t* files) {
  if (name == nullptr) return -1;
  if (files == nullptr) return EINVAL;
  if (!tarvio::is_plain_operand(name)) return refuse_operand(kFiles, name);

  // Neither the options nor the offline root belong to this command, on purpose.
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

  // The heading stays behind; the nodes of the other lines change hands, which cannot fail.
  tq_list_node* last = tq_list_get_last(files);
  (last == nullptr ? files->head : last->next) = lines->head->next;
  files->count += lines->count - 1;
  lines->head->next = nullptr;
  lines->count = 1;
  return 0;
}
