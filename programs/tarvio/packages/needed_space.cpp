#include "packages/needed_space.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>

#include "packages/member_names.h"
#include "packages/opkg_information.h"
#include "packages/package_file.h"
#include "process/failure.h"
#include "process/kernel_text.h"
#include "process/paths.h"
#include "process/text_pieces.h"

namespace client {

namespace {

constexpr uint64_t kFarTooMuch = 1 << 30;
struct Exceeded {};  // ends a listing

struct ListedFile {
  uint64_t bytes;
  std::string name;
};

// The file in a line such as "-rw-r--r-- 0/0 3000 2024-01-01 00:00 ./opt/clock/face", its name up
// to a blank; none when its size cannot be parsed.
std::optional<ListedFile> listed_file(std::string_view line) {
  std::array<std::string_view, 6> words;  // mode, owner, size, date, time, name
  for (std::string_view& word : words) word = take_word(line);
  const std::optional<uint64_t> bytes = parse_number<uint64_t>(words[2]);
  if (!bytes) return std::nullopt;
  return ListedFile{*bytes, std::string(words[5].substr(words[5].starts_with("./") ? 2 : 0))};
}

// Devices have two numbers in place of a size, and take no space.
bool is_device(std::string_view line) { return line.starts_with('b') || line.starts_with('c'); }

std::optional<uint64_t> free_bytes_in(const std::string& directory) {
  struct statvfs status = {};
  if (statvfs(directory.c_str(), &status) != 0) {
    throw Failure::of_system("cannot find out the free space of '" + directory + "'");
  }
  if (status.f_blocks == 0) return std::nullopt;
  return uint64_t{status.f_bavail} * status.f_frsize;
}

}  // namespace

void NeededSpace::add(const std::string& directory, std::string_view piece) {
  while (lines_.feed(piece) == tarvio::LineCutter::Result::kLine) {
    add_line(directory, lines_.line());
  }
}

void NeededSpace::add_line(const std::string& directory, std::string_view line) {
  if (is_device(line)) return;
  const std::optional<ListedFile> file = listed_file(line);
  if (!file || __builtin_add_overflow(listed_bytes_, file->bytes, &listed_bytes_)) is_wrong_ = true;
  if (is_wrong_ || !line.starts_with('-')) return;
  std::string path = directory + '/' + file->name;
  const uint64_t replaced = size_of_file(path);
  struct stat status = {};
  do {
    path = directory_of(path);
  } while (stat(path.c_str(), &status) != 0 && path != "/");
  Space& space = spaces_.try_emplace(status.st_dev, Space{path}).first->second;
  if (path.size() < space.directory.size()) space.directory = path;
  space.needed_bytes += file->bytes - std::min(file->bytes, replaced);
  if (space.needed_bytes <= kFarTooMuch) return;
  space.free_bytes = free_bytes_in(space.directory);
  if (space.free_bytes && space.needed_bytes - kFarTooMuch > *space.free_bytes) {
    exceeded_ = space;
  }
}

Space NeededSpace::decisive() {
  if (lines_.finish() || is_wrong_) throw Failure(EINVAL, "cannot parse the sizes in tar's output");
  Space decisive;
  for (auto& [device, space] : spaces_) {
    space.free_bytes = free_bytes_in(space.directory);
    if (!space.fits()) return space;
    if (space.needed_bytes >= decisive.needed_bytes) decisive = space;
  }
  return decisive;
}

PackageSpace measure_package(const WorkDirectory& directory, const std::string& absolute_path,
                             double seconds) {
  const std::string root = root_of_packages();
  const std::string information = information_directory();
  NeededSpace needed;
  PackageSpace space;
  MemberNames control(is_control_member);
  MemberNames data(is_data_member);
  try {
    check_archives(
        directory, absolute_path, seconds,
        [&](std::string_view piece) {
          control.add(piece);
          needed.add(information, piece);
          space.control_bytes = needed.listed_bytes();
          if (needed.exceeded()) throw Exceeded();
        },
        [&](std::string_view piece) {
          data.add(piece);
          needed.add(root, piece);
          if (needed.exceeded()) throw Exceeded();
        });
    control.check("control.tar.gz");
    data.check("data.tar.gz");
    space.decisive = needed.decisive();
  } catch (const Exceeded&) {
    space.decisive = *needed.exceeded();
  }
  space.data_bytes = needed.listed_bytes() - space.control_bytes;
  return space;
}

}  // namespace client
