// Where a process may write.
#ifndef TARVIO_CLIENT_PROCESS_FILE_RULES_H
#define TARVIO_CLIENT_PROCESS_FILE_RULES_H

namespace client {

// Below the current directory and into /dev/null only, from now on, for this process and those that
// it starts; with a kernel that has Landlock, and where it may be used.
void write_only_here();

}  // namespace client

#endif
