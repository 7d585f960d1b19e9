// Files of others, which may be anything.
#ifndef TARVIO_CLIENT_PROCESS_REGULAR_FILE_H
#define TARVIO_CLIENT_PROCESS_REGULAR_FILE_H

#include <cstdint>
#include <string>

#include "base/owners.h"

namespace client {

struct RegularFile {
  tarvio::Fd fd;
  uint64_t bytes;
};

// Opens it to read, without waiting for a FIFO. Throws a Failure with the system's reason, or for
// what is not a regular file.
RegularFile open_regular_file(const std::string& path);

}  // namespace client

#endif
