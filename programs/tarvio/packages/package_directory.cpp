#include "packages/package_directory.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "base/owners.h"
#include "packages/control_fields.h"
#include "process/failure.h"
#include "process/paths.h"
#include "tarvio/conf.h"

namespace client {

namespace {

constexpr char kControl[] = "control";
constexpr char kTqControl[] = "tqcontrol";
constexpr char kData[] = "data";

struct Known {
  std::string_view name;
  bool is_program;
};
constexpr std::array<Known, 9> kControlFiles = {{{kControl, false},
                                                 {kTqControl, false},
                                                 {"tqstartapp", true},
                                                 {"tqstopapp", true},
                                                 {"preinst", true},
                                                 {"postinst", true},
                                                 {"prerm", true},
                                                 {"postrm", true},
                                                 {"conffiles", false}}};

mode_t mode_of(const std::string& path, const std::string& name) {
  struct stat status = {};
  if (lstat((path + "/" + name).c_str(), &status) != 0) throw Failure::of_system(name);
  return status.st_mode;
}

// Unpacking gives this mode to / itself.
void check_data(mode_t mode) {
  constexpr mode_t kOpenToAll = 0755;
  if ((mode & kOpenToAll) != kOpenToAll) {
    throw Failure(EACCES, "data/ becomes / on the device, so its mode must be 755");
  }
}

void check_control_entry(const std::string& path, const std::string& name) {
  const auto* const known = std::find_if(kControlFiles.begin(), kControlFiles.end(),
                                         [&](const Known& each) { return each.name == name; });
  if (known == kControlFiles.end()) {
    throw Failure(EINVAL, "unexpected file '" + name + "'");
  }
  const mode_t mode = mode_of(path, name);
  if (!S_ISREG(mode)) throw Failure(EINVAL, name + " is not a regular file");
  if (known->is_program && (mode & S_IXUSR) == 0) {
    throw Failure(EACCES, name + " is not executable");
  }
}

// The library reads long lines in pieces (oddity 25), and must still find the same values.
void check_reading(const std::string& path, const std::vector<Field>& fields,
                   std::initializer_list<const char*> keys) {
  const tarvio::Conf read(tq_conf_open(path.c_str()));
  for (const char* key : keys) {
    const std::string value = read == nullptr ? "" : tq_conf_read(read.get(), key);
    if (value != value_of(fields, key)) {
      throw Failure(EINVAL, std::string("the library reads '") + value + "' for " + key +
                                "; is a line too long?");
    }
  }
}

// Works on one of the files, and names it when that fails.
template <typename Work>
auto within(const std::string& name, Work work) {
  try {
    return work();
  } catch (const Failure& failure) {
    throw Failure(failure.code(), name + ": " + failure.what());
  }
}

std::vector<Field> fields_of(const std::string& path) {
  const std::optional<std::string> text = read_control_text(path);
  if (!text) throw Failure(ENOENT, std::string("cannot read: ") + strerror(ENOENT));
  return parse_control_file(*text);
}

}  // namespace

PackageDirectory check_package_directory(const std::string& path) {
  const tarvio::CString absolute(realpath(path.c_str(), nullptr));
  if (absolute == nullptr) throw Failure(errno, strerror(errno));
  PackageDirectory directory;
  directory.path = absolute.get();
  for (const std::string& name : entries_of(directory.path)) {
    if (name == kData && S_ISDIR(mode_of(directory.path, name))) {
      check_data(mode_of(directory.path, name));
      directory.has_data = true;
    } else {
      check_control_entry(directory.path, name);
      directory.control_files.push_back(name);
    }
  }

  const std::string tqcontrol_path = directory.path + "/" + kTqControl;
  const bool is_for_image = within(kTqControl, [&] {
    const std::vector<Field> tqcontrol = fields_of(tqcontrol_path);
    check_tqcontrol(tqcontrol);
    check_reading(tqcontrol_path, tqcontrol, {"TqPackageCategory", "TqPackageSubCategory"});
    return is_image(tqcontrol);
  });
  const std::string control_path = directory.path + "/" + kControl;
  within(kControl, [&] {
    const std::vector<Field> control = fields_of(control_path);
    check_control(control, is_for_image);
    check_reading(control_path, control, {"Package", "Version"});
    directory.name = value_of(control, "Package");
    directory.version = value_of(control, "Version");
  });
  return directory;
}

}  // namespace client
