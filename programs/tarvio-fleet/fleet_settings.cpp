#include "fleet_settings.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "fleet/topics.h"
#include "process/failure.h"
#include "runtime/conf_file.h"

namespace fleet_tool {

namespace {

using client::Failure;

constexpr char kSystemFile[] = "/etc/tarvio/fleet.conf";
constexpr char kOperator[] = "operator";

const char* complaint_about(const char* key, const char* value) {
  if (fleet::is_broker_key(key)) return fleet::complaint_about_broker(key, value);
  if (std::strcmp(key, kOperator) == 0) {
    return fleet::is_name(value)
               ? nullptr
               : "the value is not a name: use 1 to 64 letters, digits, '.', '_' and '-', a "
                 "letter or a digit first";
  }
  return "unknown key: use operator, broker, tls, ca_file, certificate, key, user or "
         "password_file";
}

// A directory of the user, as the variable has it or below the home directory.
std::string user_directory(const char* variable, const char* below_home) {
  if (const char* const value = std::getenv(variable); value != nullptr && value[0] == '/') {
    return std::string(value) + "/tarvio";
  }
  const char* const home = std::getenv("HOME");
  return std::string(home == nullptr ? "" : home) + below_home + "/tarvio";
}

std::string settings_file(const client::Arguments& arguments) {
  if (const std::string* const file = arguments.value_of(kConfig)) return *file;
  const std::string own = user_directory("XDG_CONFIG_HOME", "/.config") + "/fleet.conf";
  return access(own.c_str(), F_OK) == 0 ? own : kSystemFile;
}

std::string user_name() {
  const passwd* const entry = getpwuid(getuid());
  return entry != nullptr && fleet::is_name(entry->pw_name) ? entry->pw_name : "operator";
}

}  // namespace

Settings settings_in(const client::Arguments& arguments) {
  const std::string file = settings_file(arguments);
  runtime::ConfFile conf;
  runtime::Mistake mistake;
  if (!runtime::read_conf_file(file.c_str(), runtime::MissingFile::kRefused, complaint_about, conf,
                               mistake, runtime::WordsBeforeKey::kRefused)) {
    throw Failure(EINVAL, std::string(mistake.place) + ": " + mistake.why);
  }
  Settings settings;
  try {
    settings.broker = fleet::broker_in(conf.pairs.get(), file);
  } catch (const std::runtime_error& error) {
    throw Failure(EINVAL, error.what());
  }
  settings.operator_name = tq_conf_read(conf.pairs.get(), kOperator);
  if (settings.operator_name.empty()) settings.operator_name = user_name();
  return settings;
}

std::string state_directory() {
  std::string directory = user_directory("XDG_STATE_HOME", "/.local/state") + "/rollouts";
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) {
    throw Failure(error.value(), "cannot create '" + directory + "': " + error.message());
  }
  return directory;
}

}  // namespace fleet_tool
