// Files of the system, such as those of /proc.
#ifndef TARVIO_CLIENT_PROCESS_SYSTEM_FILE_H
#define TARVIO_CLIENT_PROCESS_SYSTEM_FILE_H

#include <string>

namespace client {

// All of it; empty for a file that cannot be read.
std::string read_system_file(const std::string& path);

}  // namespace client

#endif
