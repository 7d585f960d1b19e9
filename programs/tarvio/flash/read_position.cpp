#include "flash/read_position.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <functional>
#include <string_view>

#include "base/owners.h"
#include "process/system_file.h"
#include "process/text_pieces.h"

namespace client {

namespace {

// The entries whose names are numbers; none of a directory that cannot be listed.
void for_numbers(const std::string& path, const std::function<void(const std::string&)>& work) {
  const tarvio::Directory directory(opendir(path.c_str()));
  if (directory == nullptr) return;
  while (const dirent* const entry = readdir(directory.get())) {
    if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) != 0) work(entry->d_name);
  }
}

uint64_t position_in(const std::string& descriptor_information) {
  const std::string text = read_system_file(descriptor_information);
  std::string_view rest = text;
  if (take_word(rest) != "pos:") return 0;
  const std::string_view word = take_word(rest);
  uint64_t position = 0;
  (void)std::from_chars(word.data(), word.data() + word.size(), position);
  return position;
}

}  // namespace

uint64_t read_position(const std::string& path) {
  struct stat file = {};
  if (stat(path.c_str(), &file) != 0) return 0;
  uint64_t furthest = 0;
  for_numbers("/proc", [&](const std::string& process) {
    const std::string directory = "/proc/" + process;
    for_numbers(directory + "/fd", [&](const std::string& descriptor) {
      struct stat other = {};
      const bool is_it = stat((directory + "/fd/" + descriptor).c_str(), &other) == 0 &&
                         other.st_dev == file.st_dev && other.st_ino == file.st_ino;
      if (is_it) furthest = std::max(furthest, position_in(directory + "/fdinfo/" + descriptor));
    });
  });
  return furthest;
}

}  // namespace client
