#ifndef TARVIO_TESTS_SANDBOX_PRIVATE_TREE_H
#define TARVIO_TESTS_SANDBOX_PRIVATE_TREE_H

#include <string>
#include <vector>

namespace sandbox {

constexpr char kTemporaryDirectory[] = "/run/tmp";
constexpr char kCommandLineFile[] = "/run/cmdline";

// Takes this process's mount namespace out of the host's sight and puts fresh directories at the
// paths that the library has compiled in, at /run, /var/log and /dev, and a writable file at
// /proc/cmdline. Paths in `keep` stay reachable even where they lie below one of those directories.
// Ends the program on failure.
void make_private_tree(const std::vector<std::string>& keep);

// Mounts a /proc for this process's own PID namespace; false where the kernel refuses it, as it
// does in a container whose /proc is masked.
bool mount_own_proc();

}  // namespace sandbox

#endif
