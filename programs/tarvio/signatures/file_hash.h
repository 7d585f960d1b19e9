// The hash of a file that is too large for the memory.
#ifndef TARVIO_CLIENT_SIGNATURES_FILE_HASH_H
#define TARVIO_CLIENT_SIGNATURES_FILE_HASH_H

#include <cstdint>
#include <string>

#include "process/work_directory.h"
#include "signatures/minisign.h"
#include "terminal/progress.h"

namespace client {

// Reads so many bytes of an open file, in a child process, and hashes them; the progress says how
// far that is. With the path of a copy, what is hashed is also written there, into a new file that
// nobody else may open. Throws a Failure.
Hash hash_file(const WorkDirectory& directory, int file, uint64_t bytes, const std::string& copy,
               double seconds, Progress& progress);

}  // namespace client

#endif
