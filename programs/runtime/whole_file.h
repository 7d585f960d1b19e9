// Files that a reader always finds whole.
#ifndef TARVIO_RUNTIME_WHOLE_FILE_H
#define TARVIO_RUNTIME_WHOLE_FILE_H

#include <sys/types.h>

#include <string_view>

namespace runtime {

inline constexpr gid_t kOwnGroup = static_cast<gid_t>(-1);

// Puts a new file in place of another, in one step and with its mode and group from the beginning.
// The directories that lead to it are not created.
//
// False, with errno, when that failed: what was there is as it was.
bool write_whole_file(const char* path, std::string_view text, mode_t mode,
                      gid_t group = kOwnGroup);

}  // namespace runtime

#endif
