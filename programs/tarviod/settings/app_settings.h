// The settings of one application: a file NAME.conf in kAppSettingsDirectory.
#ifndef TARVIOD_APP_SETTINGS_H
#define TARVIOD_APP_SETTINGS_H

#include <stdint.h>

#include "runtime/config.h"

namespace tarviod {

inline constexpr char kAppSettingsDirectory[] = "/etc/tarvio/apps.d";
inline constexpr char kAppSettingsSuffix[] = ".conf";
inline constexpr int kMaxUserNameBytes = 63;

// When an application that has ended by itself is started again.
enum class RestartPolicy : uint8_t { kNo, kOnFailure, kAlways };

inline constexpr int64_t kNoLimit = 0;

struct AppSettings {
  RestartPolicy restart = RestartPolicy::kNo;
  bool enabled = true;  // started with all others when the manager starts
  int stop_timeout_s = 10;
  int nice = 0;
  int64_t max_memory = kNoLimit;  // in bytes
  int64_t max_open_files = kNoLimit;
  int64_t max_processes = kNoLimit;
  char after[runtime::kMaxApplicationBytes + 1] =
      "";                                  // started after this one, when the manager starts
  char user[kMaxUserNameBytes + 1] = "";   // empty: the manager's
  char group[kMaxUserNameBytes + 1] = "";  // empty: the user's
};

// Reads the settings of an application; a missing file is the same as an empty one. False when the
// file cannot be used, with file, line, cause and remedy on standard error and in the log.
bool read_app_settings(const char* application, AppSettings& settings);

// Reads all files of the directory, reports their mistakes, and names those of applications that
// are not known. False if there is a mistake.
bool check_all_app_settings(bool (*is_known)(const char* application));

}  // namespace tarviod

#endif
