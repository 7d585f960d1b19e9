#include "app_settings.h"

#include <dirent.h>
#include <errno.h>
#include <grp.h>
#include <limits.h>
#include <pwd.h>
#include <stdio.h>
#include <string.h>

#include <array>
#include <string_view>

#include "base/owners.h"
#include "runtime/conf_file.h"
#include "warn.h"

namespace tarviod {

namespace {

constexpr long kMaxStopSeconds = 3600;
constexpr int kMinNice = -20;
constexpr int kMaxNice = 19;
constexpr long kMaxCount = 1'000'000;
constexpr long kMaxUnits = 1'000'000;
constexpr size_t kSuffixLength = sizeof kAppSettingsSuffix - 1;

// Each of them stores what a text means. False when it means nothing.

bool store_restart(const char* text, AppSettings& settings) {
  constexpr std::array<const char*, 3> kWords = {"no", "on-failure", "always"};
  for (size_t i = 0; i < kWords.size(); ++i) {
    if (strcmp(text, kWords[i]) != 0) continue;
    settings.restart = static_cast<RestartPolicy>(i);
    return true;
  }
  return false;
}

bool store_enabled(const char* text, AppSettings& settings) {
  settings.enabled = strcmp(text, "yes") == 0;
  return settings.enabled || strcmp(text, "no") == 0;
}

bool store_stop_timeout(const char* text, AppSettings& settings) {
  settings.stop_timeout_s = static_cast<int>(runtime::number_of(text, kMaxStopSeconds));
  return settings.stop_timeout_s >= 0;
}

bool store_nice(const char* text, AppSettings& settings) {
  const bool is_negative = text[0] == '-';
  const long number =
      runtime::number_of(is_negative ? text + 1 : text, is_negative ? -kMinNice : kMaxNice);
  settings.nice = static_cast<int>(is_negative ? -number : number);
  return number >= 0;
}

// A number of bytes, or of KiB, MiB or GiB with the letter K, M or G after it.
bool store_max_memory(const char* text, AppSettings& settings) {
  constexpr std::string_view kUnits = "KMG";
  char digits[16];
  const size_t length = strspn(text, "0123456789");
  const size_t unit = text[length] == '\0' ? 0 : kUnits.find(text[length]) + 1;
  const bool ends = text[length] == '\0' || text[length + 1] == '\0';
  if (length >= sizeof digits || !ends || (unit == 0 && text[length] != '\0')) return false;
  (void)snprintf(digits, sizeof digits, "%.*s", static_cast<int>(length), text);
  settings.max_memory =
      static_cast<int64_t>(runtime::number_of(digits, unit == 0 ? LONG_MAX : kMaxUnits))
      << (10 * unit);
  return settings.max_memory > 0;
}

bool store_max_open_files(const char* text, AppSettings& settings) {
  settings.max_open_files = runtime::number_of(text, kMaxCount);
  return settings.max_open_files > 0;
}

bool store_max_processes(const char* text, AppSettings& settings) {
  settings.max_processes = runtime::number_of(text, kMaxCount);
  return settings.max_processes > 0;
}

template <size_t Size>
bool store_text(const char* text, char (&target)[Size]) {
  const size_t length = strlen(text);
  if (length == 0 || length >= Size) return false;
  memcpy(target, text, length + 1);
  return true;
}

bool store_after(const char* text, AppSettings& settings) {
  return store_text(text, settings.after);
}

bool store_user(const char* text, AppSettings& settings) {
  return store_text(text, settings.user) && getpwnam(text) != nullptr;
}

bool store_group(const char* text, AppSettings& settings) {
  return store_text(text, settings.group) && getgrnam(text) != nullptr;
}

struct Key {
  const char* name;
  bool (*store)(const char* text, AppSettings& settings);
  const char* complaint;  // about a text that means nothing, with the remedy
};

constexpr std::array<Key, 10> kKeys = {{
    {.name = "restart",
     .store = store_restart,
     .complaint = "unknown restart policy: write no, on-failure or always"},
    {.name = "enabled",
     .store = store_enabled,
     .complaint = "enabled is neither yes nor no: write one of them"},
    {.name = "after",
     .store = store_after,
     .complaint = "after is not the name of an application: write its package's"},
    {.name = "stop_timeout",
     .store = store_stop_timeout,
     .complaint = "stop_timeout is not a number of seconds: write one from 0 to 3600"},
    {.name = "user",
     .store = store_user,
     .complaint = "no such user: write the name of one that /etc/passwd has"},
    {.name = "group",
     .store = store_group,
     .complaint = "no such group: write the name of one that /etc/group has"},
    {.name = "nice",
     .store = store_nice,
     .complaint = "nice is not a number from -20 to 19: write one"},
    {.name = "max_memory",
     .store = store_max_memory,
     .complaint =
         "max_memory is not a number of bytes above 0: write one such as 65536K or 64M, or "
         "remove the line for no limit"},
    {.name = "max_open_files",
     .store = store_max_open_files,
     .complaint =
         "max_open_files is not a number from 1 to 1000000: write one, or remove the line for "
         "no limit"},
    {.name = "max_processes",
     .store = store_max_processes,
     .complaint =
         "max_processes is not a number from 1 to 1000000: write one, or remove the line for "
         "no limit"},
}};

const Key* find_key(const char* name) {
  for (const Key& key : kKeys) {
    if (strcmp(key.name, name) == 0) return &key;
  }
  return nullptr;
}

const char* complaint_about(const char* name, const char* text) {
  const Key* const key = find_key(name);
  if (key == nullptr) {
    return "unknown key: use restart, enabled, after, stop_timeout, user, group, nice, max_memory, "
           "max_open_files or max_processes";
  }
  AppSettings settings;
  return key->store(text, settings) ? nullptr : key->complaint;
}

bool is_settings_file(const dirent& entry) {
  const size_t length = strlen(entry.d_name);
  return entry.d_name[0] != '.' && length > kSuffixLength &&
         strcmp(entry.d_name + length - kSuffixLength, kAppSettingsSuffix) == 0;
}

bool refuse_unreadable() {
  char why[128];
  (void)snprintf(why, sizeof why, "%s: make it a directory that can be read", strerror(errno));
  warn(kAppSettingsDirectory, why);
  return false;
}

}  // namespace

bool read_app_settings(const char* application, AppSettings& settings) {
  char path[PATH_MAX];
  (void)snprintf(path, sizeof path, "%s/%s%s", kAppSettingsDirectory, application,
                 kAppSettingsSuffix);
  runtime::ConfFile file;
  runtime::Mistake mistake;
  if (!runtime::read_conf_file(path, runtime::MissingFile::kEmpty, complaint_about, file,
                               mistake)) {
    warn(mistake);
    return false;
  }
  settings = {};
  for (int i = 0; i < tq_count_variables(file.pairs.get()); ++i) {
    const Key* const key = find_key(tq_find_name(file.pairs.get(), i));
    (void)key->store(tq_find_value(file.pairs.get(), i), settings);
  }
  return true;
}

bool check_all_app_settings(bool (*is_known)(const char* application)) {
  const tarvio::Directory directory(opendir(kAppSettingsDirectory));
  bool ok = directory != nullptr || errno == ENOENT || refuse_unreadable();
  while (directory != nullptr) {
    errno = 0;
    const dirent* const entry = readdir(directory.get());
    if (entry == nullptr) break;
    if (!is_settings_file(*entry)) continue;
    char name[NAME_MAX + 1];
    (void)snprintf(name, sizeof name, "%.*s",
                   static_cast<int>(strlen(entry->d_name) - kSuffixLength), entry->d_name);
    AppSettings settings;
    ok = read_app_settings(name, settings) && ok;
    if (is_known(name)) continue;
    char path[PATH_MAX];
    (void)snprintf(path, sizeof path, "%s/%s", kAppSettingsDirectory, entry->d_name);
    warn(path, "no application of this name is installed: name the file after its package");
  }
  return directory == nullptr || errno == 0 ? ok : refuse_unreadable();
}

}  // namespace tarviod
