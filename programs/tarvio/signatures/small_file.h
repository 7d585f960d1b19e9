// Key, signature and configuration files.
#ifndef TARVIO_CLIENT_SIGNATURES_SMALL_FILE_H
#define TARVIO_CLIENT_SIGNATURES_SMALL_FILE_H

#include <sys/stat.h>

#include <cstddef>
#include <span>
#include <string>

namespace client {

// Reads a regular file that fits into the room. Returns its size. Throws a Failure that says what
// is wrong with it.
size_t read_small_file(const std::string& path, std::span<char> room);

// How others can change a file or directory of root's; empty when they cannot.
std::string weakness_of(const struct stat& status);

// Throws a Failure when a file or directory is there, and is not root's alone. False when it is not
// there.
bool check_owned_by_root(const std::string& path, mode_t type);

// Throws a Failure, with the remedy, when others can enter a directory, of which the path has no
// links, or put something else in its place.
void check_place(const std::string& directory, const std::string& remedy);

}  // namespace client

#endif
