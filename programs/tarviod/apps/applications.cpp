#include "applications.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <string_view>

#include "base/chain.h"
#include "base/line_reader.h"
#include "base/offline_root.h"
#include "base/owners.h"
#include "settings/warn.h"
#include "tarvio/app.h"
#include "tarvio/opkg.h"
#include "tarvio/status_manager.h"
#include "tarvio/text.h"

namespace tarviod {

namespace {

using Known = tarvio::Elements<const tq_app_info>;

constexpr char kInformation[] = "/usr/lib/opkg/info";
constexpr std::string_view kControl = ".control";
constexpr size_t kValueSize = 256;  // as in tq_conf_open, with the pieces of a longer line
constexpr size_t kPathSize = 1024;

bool refuse(const char* what, int error, int line = __builtin_LINE()) {
  const bool is_short = error == ENOMEM || error == EMFILE || error == ENFILE;
  char why[128];
  (void)snprintf(why, sizeof why, "%s: %s", strerror(error),
                 is_short ? "free some and try again" : "make it readable");
  warn(what, why, line);
  return false;
}

bool refuse_unread(const char* name, int line = __builtin_LINE()) {
  warn(name,
       "is installed but could not be read: free memory and descriptors, then start tarviod again",
       line);
  return false;
}

// Reads the value of a key as tq_conf_open does, which does not say what it could not read. Empty
// when there is none. False, with errno, when the file could not be read.
bool read_value(const char* path, const char* key, char (&value)[kValueSize]) {
  value[0] = '\0';
  const tarvio::Fd file(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat info = {};
  if (!file.valid() || fstat(file.get(), &info) != 0) return false;
  if (!S_ISREG(info.st_mode)) return true;
  tarvio::ReadAhead ahead;
  char room[kValueSize];
  tarvio::LineCutter line(tarvio::LineEnd::kLineFeed, room);
  tarvio::LineReader reader(file.get(), ahead, line);
  while (reader.next()) {
    char* text = tq_chop(line.text());
    char* rest = nullptr;
    if (strstr(text, ": ") == nullptr) continue;
    const char* name = strtok_r(text, ": ", &rest);
    const char* word = strtok_r(nullptr, ": ", &rest);
    if (word != nullptr && strcmp(name, key) == 0) (void)stpcpy(value, word);
  }
  return reader.error() == 0;
}

class Information {
 public:
  explicit Information(const char* root) {
    (void)snprintf(directory_, sizeof directory_, "%s%s", root, kInformation);
  }

  // False when something could not be read.
  bool check();

 private:
  bool check_package(const char* control_file);
  bool check_file(const char* name, const char* extension, const char* known);
  bool complain_about_damage(const char* key);
  void set_path(const char* name, const char* extension) {
    (void)snprintf(path_, sizeof path_, "%s/%s%s", directory_, name, extension);
  }

  char directory_[sizeof tarvio::kOfflineRoot + sizeof kInformation];
  char path_[kPathSize];
};

bool Information::check() {
  const tarvio::Directory directory(opendir(directory_));
  if (directory == nullptr) {
    if (errno != ENOENT) return refuse(directory_, errno);
    warn(directory_, "No such file or directory: no application is known");  // as on a new device
    return true;
  }
  while (true) {
    errno = 0;
    const dirent* entry = readdir(directory.get());
    if (entry == nullptr) return errno == 0 || refuse(directory_, errno);
    const std::string_view file = entry->d_name;
    const bool is_control = file.size() > kControl.size() && file.ends_with(kControl);
    if (is_control && !check_package(entry->d_name)) return false;
  }
}

bool Information::check_package(const char* control_file) {
  char name[kValueSize];
  char category[kValueSize];
  set_path(control_file, "");
  if (!read_value(path_, "Package", name)) return errno == ENOENT || refuse(path_, errno);
  if (name[0] == '\0') return complain_about_damage("Package");
  set_path(name, ".tqcontrol");
  if (!read_value(path_, "TqPackageCategory", category)) {
    return errno == ENOENT || refuse(path_, errno);  // a package of others has none (oddity 66)
  }
  if (category[0] == '\0') return complain_about_damage("TqPackageCategory");
  if (strcmp(category, "Application") != 0) return true;
  const tq_app_info* app = find_application(name);
  return app == nullptr ? refuse_unread(name)
                        : check_file(name, ".tqstartapp", app->package->start_app) &&
                              check_file(name, ".tqstopapp", app->package->stop_app);
}

// The set-up takes a file that it cannot look for as missing.
bool Information::check_file(const char* name, const char* extension, const char* known) {
  struct stat info = {};
  set_path(name, extension);
  if (stat(path_, &info) == 0) return known[0] != '\0' || refuse_unread(name);
  return errno == ENOENT || refuse(path_, errno);
}

// True: the other packages count.
bool Information::complain_about_damage(const char* key) {
  char why[128];
  (void)snprintf(why, sizeof why, "has no %s, so the package is left out: install it again", key);
  warn(path_, why);
  return true;
}

}  // namespace

tq_app_info* find_application(const char* name) {
  for (tq_app_info* app : tarvio::Elements<tq_app_info>(tq_known_applications())) {
    if (strcmp(app->package->name, name) == 0) return app;
  }
  return nullptr;
}

std::optional<int> check_applications() {
  if (sl == nullptr || linux_app_binding == nullptr || tq_known_applications() == nullptr) {
    warn("cannot set up the managers", "out of memory: free some and try again");
    return std::nullopt;
  }
  int online = 1;
  const int error = tq_is_boot_online(&online);
  if (error != 0) {
    (void)refuse("/proc/cmdline", error);
    return std::nullopt;
  }
  if (!Information(online != 0 ? "" : tarvio::kOfflineRoot).check()) return std::nullopt;

  int count = 0;
  for (const tq_app_info* app : Known(tq_known_applications())) {
    ++count;
    if (app->binding != nullptr) continue;
    // Without memory the set-up asks no binding.
    if (linux_app_binding->is_mine(const_cast<tq_app_info*>(app)) != 0) {
      (void)refuse_unread(app->package->name);
      return std::nullopt;
    }
    warn(app->package->name, "no binding accepts this application");
  }
  return count;
}

}  // namespace tarviod
