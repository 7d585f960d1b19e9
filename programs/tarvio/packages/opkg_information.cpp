#include "packages/opkg_information.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "base/line_cutter.h"
#include "packages/control_fields.h"
#include "process/failure.h"
#include "process/kernel_text.h"
#include "process/paths.h"
#include "process/system_file.h"
#include "process/text_pieces.h"

namespace client {

namespace {

constexpr char kInformation[] = "/usr/lib/opkg/info";
// Of 0.3 and later, unless their configuration names another.
constexpr char kNewerInformation[] = "/var/lib/opkg/info";
constexpr char kConfiguration[] = "/etc/opkg";

// The names of the entries that end so; none when there is no such directory.
std::vector<std::string> files_in(const std::string& directory, std::string_view suffix) {
  std::vector<std::string> names;
  try {
    names = entries_of(directory);
  } catch (const Failure& failure) {
    if (failure.code() != ENOENT) throw;
  }
  std::erase_if(names, [&](const std::string& name) {
    return name.size() <= suffix.size() || !name.ends_with(suffix);
  });
  return names;
}

// What opkg's configuration says of the directory; empty when it says nothing.
struct Configured {
  std::string file;
  std::string directory;  // without the root
};

// "option info_dir DIRECTORY" in the text, which opkg takes in quotes as well; empty when it is not
// there.
std::string information_in(std::string_view text) {
  while (!text.empty()) {
    std::string_view line = tarvio::take_line(text);
    if (take_word(line) != "option" || take_word(line) != "info_dir") continue;
    std::string directory(take_word(line));
    std::erase(directory, '"');
    while (directory.size() > 1 && directory.ends_with('/')) directory.pop_back();
    return directory;
  }
  return {};
}

Configured configured_below(const std::string& root) {
  const std::string directory = root + kConfiguration + '/';
  for (const std::string& file : files_in(directory, ".conf")) {
    const std::string configured = information_in(read_system_file(directory + file));
    if (!configured.empty()) return {directory + file, configured};
  }
  return {};
}

bool knows(const std::string& directory, const std::string& name) {
  const std::vector<std::string> files = control_files_in(directory);
  if (name.empty()) return !files.empty();
  return std::find(files.begin(), files.end(), name + ".control") != files.end();
}

}  // namespace

std::string information_directory() { return root_of_packages() + kInformation; }

std::vector<std::string> control_files_in(const std::string& directory) {
  return files_in(directory, ".control");
}

std::optional<std::string> read_information(const std::string& path) {
  try {
    return read_control_text(path);
  } catch (const Failure& failure) {
    throw Failure(failure.code(), "'" + path + "': " + failure.what());
  }
}

std::string other_place_of_information(const std::string& name) {
  const std::string root = root_of_packages();
  const std::string configured = configured_below(root).directory;
  std::string other = root + (configured.empty() ? kNewerInformation : configured);
  return knows(root + kInformation, name) || !knows(other, name) ? "" : other;
}

std::string configured_place_of_information() {
  const std::string root = root_of_packages();
  const std::string configured = configured_below(root).directory;
  return configured.empty() ? "" : root + configured;
}

std::string remedy_for_other_place() {
  const std::string root = root_of_packages();
  const std::string file = configured_below(root).file;
  if (!file.empty()) return std::string("change info_dir to ") + kInformation + " in " + file;
  return std::string("add 'option info_dir ") + kInformation + "' to " + root + kConfiguration +
         "/opkg.conf";
}

void check_place_of_information(const std::string& name, const std::string& state) {
  const std::string other = other_place_of_information(name);
  if (other.empty()) return;
  throw Failure(ENOENT,
                state + "opkg keeps its information in " + other + "; " + remedy_for_other_place());
}

}  // namespace client
