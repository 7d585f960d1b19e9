#include "signatures/small_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/pipe.h"
#include "packages/package_file.h"
#include "process/failure.h"
#include "process/paths.h"

namespace client {

namespace {

std::string octal(mode_t mode) {
  char text[16];
  (void)snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777U));
  return text;
}

// With an access control list, the bits of the group are what any user that it names may have.
bool is_open_to_others(const struct stat& status) {
  return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

RegularFile open_to_read(const std::string& path) {
  try {
    return open_regular_file(path);
  } catch (const Failure& failure) {
    if (failure.code() == ENOENT) throw Failure(ENOENT, "does not exist");
    if (failure.code() == EINVAL) throw Failure(EINVAL, std::string("is ") + failure.what());
    throw Failure(failure.code(), std::string("cannot be read: ") + failure.what());
  }
}

}  // namespace

size_t read_small_file(const std::string& path, std::span<char> room) {
  const RegularFile file = open_to_read(path);
  size_t size = 0;
  while (size < room.size()) {
    const ssize_t count = tarvio::read_some(file.fd.get(), room.subspan(size));
    if (count < 0) throw Failure::of_system("cannot be read");
    if (count == 0) return size;
    size += static_cast<size_t>(count);
  }
  throw Failure(EFBIG, "is too large: it has " + std::to_string(room.size()) + " bytes or more");
}

std::string weakness_of(const struct stat& status) {
  if (status.st_uid != 0) {
    return "is owned by user " + std::to_string(status.st_uid) + "; make root its owner";
  }
  if (!is_open_to_others(status)) return "";
  return "can be changed by others (mode " + octal(status.st_mode) + "); run chmod go-w on it";
}

bool check_owned_by_root(const std::string& path, mode_t type) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return false;
    throw Failure::of_system("cannot trust '" + path + "'");
  }
  if ((status.st_mode & S_IFMT) != type) {
    throw Failure(EKEYREJECTED, "cannot trust '" + path + "': it is not a " +
                                    (type == S_IFDIR ? "directory" : "regular file"));
  }
  const std::string weakness = weakness_of(status);
  if (!weakness.empty()) throw Failure(EKEYREJECTED, "cannot trust '" + path + "': it " + weakness);
  return true;
}

void check_place(const std::string& directory, const std::string& remedy) {
  const std::string place = directory_of(directory);
  const auto refuse = [&](const std::string& why) {
    throw Failure(EPERM, "cannot keep a private copy in '" + place + "': " + why + "; " + remedy);
  };
  struct stat own = {};
  if (lstat(directory.c_str(), &own) != 0)
    throw Failure::of_system("cannot examine '" + directory + "'");
  // As a file system without owners and modes shows it, such as that of an USB stick.
  if (own.st_uid != geteuid() || (own.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    refuse("its file system keeps no owners and modes");
  }
  for (std::string path = place; path != "/"; path = directory_of(path)) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) throw Failure::of_system("cannot examine '" + path + "'");
    const bool is_own = status.st_uid == 0 || status.st_uid == geteuid();
    const bool is_sticky = (status.st_mode & S_ISVTX) != 0;
    if (is_own && (is_sticky || !is_open_to_others(status))) continue;
    refuse("others can rename files " + (path == place ? "there" : "in '" + path + "'"));
  }
}

}  // namespace client
