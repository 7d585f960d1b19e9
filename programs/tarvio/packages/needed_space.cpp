#include "packages/needed_space.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "packages/package_size.h"
#include "process/failure.h"
#include "process/paths.h"
#include "process/system_file.h"
#include "process/text_pieces.h"
#include "terminal/words.h"

namespace client {

void NeededSpace::add(std::string_view piece) {
  while (lines_.feed(piece) == tarvio::LineCutter::Result::kLine) add_line(lines_.line());
}

void NeededSpace::add_line(std::string_view line) {
  const std::optional<uint64_t> bytes = listed_size(line);
  if (!bytes) is_wrong_ = true;
  if (!bytes || !line.starts_with('-')) return;
  std::array<std::string_view, 6> words;  // mode, owner, size, date, time, name up to a blank
  for (std::string_view& word : words) word = take_word(line);
  std::string_view& name = words[5];
  if (name.starts_with("./")) name.remove_prefix(2);
  std::string path = root_ + '/' + std::string(name);
  const uint64_t replaced = size_of_file(path);
  struct stat status = {};
  do {
    path = directory_of(path);
  } while (stat(path.c_str(), &status) != 0 && path != "/");
  Place& place = places_.try_emplace(status.st_dev, Place{path}).first->second;
  const uint64_t added = *bytes - std::min(*bytes, replaced);
  if (__builtin_add_overflow(place.bytes, added, &place.bytes)) is_wrong_ = true;
}

void NeededSpace::check() {
  if (lines_.finish() || is_wrong_) throw Failure(EINVAL, "cannot parse the sizes in tar's output");
  for (const auto& [device, place] : places_) {
    struct statvfs status = {};
    if (statvfs(place.directory.c_str(), &status) != 0) {
      throw Failure::of_system("cannot find out the free space of '" + place.directory + "'");
    }
    const uint64_t free_bytes = uint64_t{status.f_bavail} * status.f_frsize;
    const bool is_counted = status.f_blocks != 0;  // not where the root is in memory
    if (!is_counted || place.bytes <= free_bytes) continue;
    throw Failure(ENOSPC, "not enough space in '" + place.directory +
                              "': " + size_words(place.bytes) + " needed, " +
                              size_words(free_bytes) + " free");
  }
}

}  // namespace client
