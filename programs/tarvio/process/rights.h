// What a child process may do.
#ifndef TARVIO_CLIENT_PROCESS_RIGHTS_H
#define TARVIO_CLIENT_PROCESS_RIGHTS_H

#include <cstdint>
#include <initializer_list>
#include <string>

namespace client {

struct Rights {
  bool are_limited = false;
  std::string file;             // absolute; all that the child reads but for programs; may be empty
  int descriptor = -1;          // of a file that it reads; the only one that it inherits
  uint64_t max_file_bytes = 0;  // of each file that it writes

  // Those of this process, for tools that change the system or its devices.
  static Rights of_caller() { return {}; }
  // For what reads a file that nobody vouches for: tools, and calls into the library.
  static Rights to_read(std::string file, uint64_t max_file_bytes) {
    return {.are_limited = true, .file = std::move(file), .max_file_bytes = max_file_bytes};
  }
  static Rights to_read(int descriptor, uint64_t max_file_bytes) {
    return {.are_limited = true,
            .file = {},
            .descriptor = descriptor,
            .max_file_bytes = max_file_bytes};
  }
};

// In a new process, in its work directory: gives up all but these rights, for good, and for the
// processes that it starts. What the kernel does not offer, or a container refuses, is left out.
// With limited rights, only the standard descriptors, that of the rights and the kept ones stay
// open.
//
// Limited rights are: read what this user may read, without capabilities (but for the one to read
// the file, if it takes one); write in the work directory only, files of a bounded size; run
// programs, a bounded number in a bounded memory, none of which leaves the process group. Owners,
// modes and times of files stay, though changing them seems to succeed. No sockets, no shared
// memory, no control of devices, no changes to other processes.
void limit_to(const Rights& rights, std::initializer_list<int> kept);

// What limited rights should keep this process from, and do not: phrases such as
// "opening sockets". Empty when all is as it should be.
std::string freedoms_left();

}  // namespace client

#endif
