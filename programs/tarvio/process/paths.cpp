#include "process/paths.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "base/owners.h"
#include "process/failure.h"

namespace client {

namespace {

constexpr size_t kMaxNameLength = 100;  // there must be room for the rest of a command line

bool is_plain(char letter) {
  constexpr std::string_view kMarks = "._+-";
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
         (letter >= '0' && letter <= '9') || kMarks.find(letter) != std::string_view::npos;
}

bool sync(const std::string& path, int flags) {
  const tarvio::Fd file(open(path.c_str(), flags | O_CLOEXEC));
  return file.valid() && fsync(file.get()) == 0;
}

}  // namespace

bool has_plain_name(std::string_view path) {
  const std::string_view name = path.substr(path.rfind('/') + 1);
  return !name.empty() && name.size() <= kMaxNameLength && name != "." && name != ".." &&
         std::all_of(name.begin(), name.end(), is_plain);
}

std::vector<std::string> entries_of(const std::string& directory) {
  const tarvio::Directory handle(opendir(directory.c_str()));
  std::vector<std::string> names;
  while (handle != nullptr) {
    errno = 0;  // the only sign of an error
    const dirent* const entry = readdir(handle.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) throw Failure::of_system("cannot read '" + directory + "'");
  std::sort(names.begin(), names.end());
  return names;
}

uint64_t put_in_place(const std::string& from, const std::string& to) {
  struct stat status = {};
  if (stat(from.c_str(), &status) != 0 || !sync(from, O_RDONLY) ||
      rename(from.c_str(), to.c_str()) != 0 || !sync(directory_of(to), O_RDONLY | O_DIRECTORY)) {
    throw Failure::of_system("cannot write '" + to + "'");
  }
  return static_cast<uint64_t>(status.st_size);
}

}  // namespace client
