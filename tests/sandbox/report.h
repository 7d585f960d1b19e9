#ifndef TARVIO_TESTS_SANDBOX_REPORT_H
#define TARVIO_TESTS_SANDBOX_REPORT_H

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace sandbox {

// Says what could not be done, and why, and ends the program: a test must never run outside.
[[noreturn]] inline void die(const std::string& what, const char* remedy = "") {
  std::fprintf(stderr, "sandbox: %s: %s\n%s", what.c_str(), std::strerror(errno), remedy);
  std::exit(1);
}

constexpr char kRemedy[] =
    "The sandbox needs private namespaces and mounts. As root, the right to mount must be there "
    "(in a\n"
    "container: --privileged, or CAP_SYS_ADMIN and no seccomp or AppArmor profile). As an "
    "ordinary\n"
    "user, user namespaces must be on: the sysctl settings user.max_user_namespaces above 0 and, "
    "where\n"
    "they exist, kernel.unprivileged_userns_clone=1 and "
    "kernel.apparmor_restrict_unprivileged_userns=0.\n";

}  // namespace sandbox

#endif
