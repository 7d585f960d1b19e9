// The file with the manager's process id, for supervisors that ask for one.
#ifndef TARVIOD_PID_FILE_H
#define TARVIOD_PID_FILE_H

namespace tarviod {

// Replaces what is at the path, in one step. False, with the reason on standard error, when that
// failed.
bool write_pid_file(const char* path);

}  // namespace tarviod

#endif
