// Paths of files.
#ifndef TARVIO_CLIENT_PROCESS_PATHS_H
#define TARVIO_CLIENT_PROCESS_PATHS_H

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace client {

// The directory that a file is in.
inline std::string directory_of(const std::string& file) {
  const size_t slash = file.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : file.substr(0, slash);
}

// 0 for a file that does not exist.
inline uint64_t size_of_file(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

// Whether the library's tools, which run under a shell, take the last component as it is.
bool has_plain_name(std::string_view path);

// The sorted names of all that is in a directory. Throws a Failure that names the directory when it
// cannot be read.
std::vector<std::string> entries_of(const std::string& directory);

// Renames a complete file. A reader sees the old file or the whole new one, even after a power cut.
// Returns its size in bytes. Throws a Failure.
uint64_t put_in_place(const std::string& from, const std::string& to);

}  // namespace client

#endif
