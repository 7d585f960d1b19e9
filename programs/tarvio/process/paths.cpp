#include "process/paths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

uint64_t put_in_place(const std::string& from, const std::string& to) {
  struct stat status = {};
  if (stat(from.c_str(), &status) != 0 || !sync(from, O_RDONLY) ||
      rename(from.c_str(), to.c_str()) != 0 || !sync(directory_of(to), O_RDONLY | O_DIRECTORY)) {
    throw Failure::of_system("cannot write '" + to + "'");
  }
  return static_cast<uint64_t>(status.st_size);
}

}  // namespace client
