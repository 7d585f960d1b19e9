#include "process/paths.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "base/owners.h"
#include "process/failure.h"

namespace client {

namespace {

bool sync(const std::string& path, int flags) {
  const tarvio::Fd file(open(path.c_str(), flags | O_CLOEXEC));
  return file.valid() && fsync(file.get()) == 0;
}

}  // namespace

void put_in_place(const std::string& from, const std::string& to) {
  if (!sync(from, O_RDONLY) || rename(from.c_str(), to.c_str()) != 0 ||
      !sync(directory_of(to), O_RDONLY | O_DIRECTORY)) {
    throw Failure::of_system("cannot write '" + to + "'");
  }
}

}  // namespace client
