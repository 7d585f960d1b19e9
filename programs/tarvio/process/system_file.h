// Files that the kernel makes, such as those of /proc.
#ifndef TARVIO_CLIENT_PROCESS_SYSTEM_FILE_H
#define TARVIO_CLIENT_PROCESS_SYSTEM_FILE_H

#include <string>
#include <string_view>

namespace client {

// All of it; empty for a file that cannot be read.
std::string read_system_file(const std::string& path);

// Takes the first word, between blanks and line ends, from the text; empty at its end.
std::string_view take_word(std::string_view& text);

}  // namespace client

#endif
