#include "faults/device.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <stdexcept>

#include "faults/run.h"
#include "support/files.h"

namespace faults {

namespace {

namespace fs = std::filesystem;

const std::vector<std::string> kInstalled = {"/usr/lib/opkg", "/opt"};

fs::path saved(const std::string& name, const std::string& directory) {
  return fs::path("/run/faults/saved") / name / fs::path(directory).filename();
}

}  // namespace

void clear(const fs::path& directory) {
  fs::create_directories(directory);
  for (const auto& entry : fs::directory_iterator(directory)) fs::remove_all(entry.path());
}

void shell(const std::string& line) {
  const std::string command =
      "cd " + std::string(kWorkDirectory) + " && { " + line + "\n} >/dev/null";
  if (std::system(command.c_str()) != 0) throw std::runtime_error(line);
}

void clear_device() {
  for (const std::string& directory : kInstalled) clear(directory);
  fs::create_directory("/usr/lib/opkg/info");
  clear(kTemporaryDirectory);
  clear(kWorkDirectory);
  fs::remove_all("/run/tarvio");
  fs::remove_all("/etc/tarvio/keys");
  fs::remove("/etc/tarvio/tarvio.conf");
}

void save_installed(const std::string& name) {
  for (const std::string& directory : kInstalled) {
    clear(saved(name, directory));
    fs::copy(directory, saved(name, directory), fs::copy_options::recursive);
  }
}

void load_installed(const std::string& name) {
  for (const std::string& directory : kInstalled) {
    fs::copy(saved(name, directory), directory,
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
  }
}

namespace {

std::string line_of(const fs::path& path) {
  std::ostringstream line;
  line << std::oct << static_cast<unsigned>(fs::symlink_status(path).permissions()) << ' '
       << path.string();
  if (fs::is_regular_file(path)) {
    line << ' ' << std::hex << std::hash<std::string>()(tarvio_test::read_file(path));
  }
  return line.str() + '\n';
}

}  // namespace

std::string tree_of(const fs::path& path) {
  if (!fs::is_directory(path)) return line_of(path);
  std::vector<std::string> lines;
  for (const auto& entry : fs::recursive_directory_iterator(path)) lines.push_back(line_of(entry));
  std::sort(lines.begin(), lines.end());
  std::string tree;
  for (const std::string& line : lines) tree += line;
  return tree;
}

std::string state_of_device() {
  std::string state = tree_of(kWorkDirectory);
  for (const std::string& directory : kInstalled) state += tree_of(directory);
  return state;
}

}  // namespace faults
