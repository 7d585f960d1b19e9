// The SHA-256 of files.
#ifndef TARVIO_FLEET_FILE_SHA256_H
#define TARVIO_FLEET_FILE_SHA256_H

#include <string>

namespace fleet {

// Of the bytes from the beginning of a file to its end, as 64 digits in lower case. Throws
// std::runtime_error when it cannot be read.
std::string sha256_of(int fd);

}  // namespace fleet

#endif
