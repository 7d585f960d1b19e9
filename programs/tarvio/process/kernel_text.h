// What texts of the kernel say.
#ifndef TARVIO_CLIENT_PROCESS_KERNEL_TEXT_H
#define TARVIO_CLIENT_PROCESS_KERNEL_TEXT_H

#include <string>
#include <string_view>
#include <vector>

namespace client {

// The root on a kernel's command line; empty when it names none.
std::string root_in(std::string_view command_line);

// The root of the installed system: empty when the device runs from it. Throws a Failure when that
// cannot be found out.
std::string root_of_packages();

struct Mount {
  std::string device;
  std::string directory;
  std::string type = {};     // of the file system
  std::string options = {};  // with commas between
};

// In /proc/self/mounts, in the order of the file.
std::vector<Mount> mounts_in(std::string_view text);

}  // namespace client

#endif
