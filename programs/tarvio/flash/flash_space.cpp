#include "flash/flash_space.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>

#include "process/failure.h"
#include "terminal/words.h"

namespace client {

namespace {

struct Space {
  dev_t device;
  uint64_t free_bytes;
};

Space space_in(const std::string& directory) {
  struct stat status = {};
  struct statvfs space = {};
  if (stat(directory.c_str(), &status) != 0 || statvfs(directory.c_str(), &space) != 0) {
    throw Failure::of_system("cannot determine the free space in '" + directory + "'");
  }
  return {status.st_dev, static_cast<uint64_t>(space.f_bavail) * space.f_frsize};
}

void check(const Need& need, const Space& space) {
  if (space.free_bytes >= need.bytes) return;
  throw Failure(ENOSPC, "not enough space in '" + need.directory + "': up to " +
                            size_words(need.bytes) + " needed, " + size_words(space.free_bytes) +
                            " free");
}

}  // namespace

std::string work_directory_in(const std::string& directory) {
  return directory + "/.tarvio-flash.";
}

// The work directory holds one area's file at a time. The package exists twice while ar adds to it.
BackupBytes bytes_of_backup(std::span<const FlashArea* const> areas) {
  BackupBytes sum;
  for (const FlashArea* const area : areas) {
    uint64_t bytes = 0;
    for (const AreaPart& part : parts_of(*area)) bytes += part.backup_bytes;
    sum.work = std::max(sum.work, bytes);
    sum.target += 2 * bytes;
  }
  return sum;
}

void check_space(const Need& one, const Need& other) {
  const Space here = space_in(one.directory);
  const Space there = space_in(other.directory);
  if (here.device == there.device) return check({one.directory, one.bytes + other.bytes}, here);
  check(one, here);
  check(other, there);
}

}  // namespace client
