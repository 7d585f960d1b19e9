#include "process/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

#include "process/failure.h"

namespace client {

RegularFile open_regular_file(const std::string& path) {
  tarvio::Fd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!file.valid() || fstat(file.get(), &status) != 0) throw Failure(errno, strerror(errno));
  if (!S_ISREG(status.st_mode)) throw Failure(EINVAL, "not a regular file");
  return {std::move(file), static_cast<uint64_t>(status.st_size)};
}

}  // namespace client
