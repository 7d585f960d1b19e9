// A kernel that lacks what limits the rights of processes.
#ifndef TARVIO_TESTS_SUPPORT_PROGRAMS_OLD_KERNEL_H
#define TARVIO_TESTS_SUPPORT_PROGRAMS_OLD_KERNEL_H

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace tarvio_test {

inline void install(const sock_fprog& program) {
  (void)::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  (void)::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0);
}

// The system call gets the error from now on, in this process and those that it starts, when its
// first argument has the value.
inline void let_fail(uint32_t call, uint32_t argument, uint32_t error) {
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, argument, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  install({.len = std::size(filter), .filter = filter});
}

// Whatever its arguments are.
inline void let_fail(uint32_t call, uint32_t error) {
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  install({.len = std::size(filter), .filter = filter});
}

// As with a kernel that has neither Landlock nor, for this process, system call filters. Tools can
// then note what they do where a test looks.
inline void become_old() {
  let_fail(444, 0, ENOSYS);
  let_fail(SYS_prctl, PR_SET_SECCOMP, EINVAL);
}

// As in a container, or under a service manager, that refuses what only few programs use.
inline void become_contained() {
  for (const uint32_t call : {uint32_t{445}, uint32_t{446}, uint32_t{SYS_capset}}) {
    let_fail(call, EPERM);
  }
  let_fail(SYS_prctl, PR_SET_SECCOMP, EPERM);
}

}  // namespace tarvio_test

#endif
