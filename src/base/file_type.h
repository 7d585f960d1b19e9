// What a path leads to; links are followed, and a path that leads nowhere is none of these.
#ifndef TARVIO_SRC_BASE_FILE_TYPE_H
#define TARVIO_SRC_BASE_FILE_TYPE_H

namespace tarvio {

bool is_regular_file(const char* path) noexcept;
bool is_directory(const char* path) noexcept;

// A regular file of at most 128 MiB: that of a hostile package may be sparse, and without an end
// that a reader would ever see.
bool is_control_file(const char* path) noexcept;

}  // namespace tarvio

#endif
