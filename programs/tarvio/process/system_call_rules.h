// Which system calls a process may use.
#ifndef TARVIO_CLIENT_PROCESS_SYSTEM_CALL_RULES_H
#define TARVIO_CLIENT_PROCESS_SYSTEM_CALL_RULES_H

namespace client {

// None that no tool needs to read an archive, from now on, for this process and those that it
// starts; with a kernel that has system call filters for this machine, and where they may be used.
void refuse_system_calls();

}  // namespace client

#endif
