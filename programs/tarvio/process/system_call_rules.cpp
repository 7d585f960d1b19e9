#include "process/system_call_rules.h"

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace client {

namespace {

// A list of what is refused, since a list of what is allowed would have to know each libc, shell,
// BusyBox and GNU tool of each release: one call that it missed would make packages unreadable.

#if defined(__arm__)
constexpr uint32_t kMachine = AUDIT_ARCH_ARM;
constexpr uint32_t kFirstPrivateCall = 0x0f0000;  // to set up threads
#else
#if defined(__aarch64__)
constexpr uint32_t kMachine = AUDIT_ARCH_AARCH64;
#elif defined(__x86_64__)
constexpr uint32_t kMachine = AUDIT_ARCH_X86_64;
#else
constexpr uint32_t kMachine = 0;  // no filter
#endif
constexpr uint32_t kFirstPrivateCall = UINT32_MAX;
#endif

// Linux 5.1 and later. Without them, as on an older kernel, programs take another way: so no list
// needs to know each new one (rings, mounts, clone3...).
constexpr uint32_t kFirstNewCall = 424;

// What no reader of an archive does.
constexpr std::array kRefused = {
    // The network, and other processes' services.
    SYS_socket,
    SYS_socketpair,
    // Other processes, their memory and what the kernel knows of them.
    SYS_ptrace,
    SYS_process_vm_readv,
    SYS_process_vm_writev,
    SYS_kcmp,
    SYS_perf_event_open,
    SYS_setpriority,
    SYS_ioprio_set,
    SYS_sched_setaffinity,
    SYS_sched_setattr,
    SYS_sched_setparam,
    SYS_sched_setscheduler,
    // Out of the process group, which ends with the deadline.
    SYS_setsid,
    SYS_setpgid,
    // Memory that outlives its processes, and that of others: a number is enough for it.
    SYS_shmget,
    SYS_shmat,
    SYS_shmctl,
    SYS_msgget,
    SYS_msgsnd,
    SYS_msgrcv,
    SYS_msgctl,
    SYS_semget,
    SYS_semop,
    SYS_semtimedop,
    SYS_semctl,
    SYS_mq_open,
    SYS_mq_unlink,
#ifdef SYS_semtimedop_time64
    SYS_semtimedop_time64,
#endif
    // Namespaces and mounts.
    SYS_unshare,
    SYS_setns,
    SYS_mount,
    SYS_umount2,
    SYS_pivot_root,
    SYS_chroot,
    // Code in the kernel, and what often was a way into it.
    SYS_bpf,
    SYS_init_module,
    SYS_finit_module,
    SYS_delete_module,
    SYS_kexec_load,
    SYS_userfaultfd,
    SYS_personality,
    SYS_keyctl,
    SYS_add_key,
    SYS_request_key,
    // Around the rules for files.
    SYS_open_by_handle_at,
    SYS_truncate,
    SYS_setxattr,
    SYS_lsetxattr,
    SYS_fsetxattr,
    SYS_removexattr,
    SYS_lremovexattr,
    SYS_fremovexattr,
#ifdef SYS_truncate64
    SYS_truncate64,
#endif
};

// What tools do with each file that they unpack, and what no rule for files bounds: without
// capabilities, root still owns the system's files.
constexpr std::array kIgnored = {
    SYS_fchmod,
    SYS_fchmodat,
    SYS_fchown,
    SYS_fchownat,
    SYS_utimensat,
#ifdef SYS_utimensat_time64
    SYS_utimensat_time64,
#endif
#ifdef SYS_utime
    SYS_utime,
#endif
#ifdef SYS_utimes
    SYS_utimes,
    SYS_futimesat,
#endif
#ifdef SYS_chmod
    SYS_chmod,
    SYS_chown,
    SYS_lchown,
#endif
#ifdef SYS_chown32
    SYS_chown32,
    SYS_lchown32,
    SYS_fchown32,
#endif
};

struct RefusedArgument {
  uint32_t call;
  uint32_t argument;
  uint32_t bits;  // those that count
  uint32_t value;
  bool is_allowed = false;  // this value, and no other
};

constexpr std::array kRefusedArguments = {
    // The limits of other processes.
    RefusedArgument{SYS_prlimit64, 0, UINT32_MAX, 0, true},
    RefusedArgument{SYS_clone, 0, CLONE_NEWNS, CLONE_NEWNS},
    RefusedArgument{SYS_clone, 0, CLONE_NEWCGROUP, CLONE_NEWCGROUP},
    RefusedArgument{SYS_clone, 0, CLONE_NEWUTS, CLONE_NEWUTS},
    RefusedArgument{SYS_clone, 0, CLONE_NEWIPC, CLONE_NEWIPC},
    RefusedArgument{SYS_clone, 0, CLONE_NEWUSER, CLONE_NEWUSER},
    RefusedArgument{SYS_clone, 0, CLONE_NEWPID, CLONE_NEWPID},
    RefusedArgument{SYS_clone, 0, CLONE_NEWNET, CLONE_NEWNET},
};

// Instructions of the filter, which sees a call as a seccomp_data.
class Filter {
 public:
  Filter() {
    load(offsetof(seccomp_data, arch));
    add(BPF_JMP | BPF_JEQ | BPF_K, kMachine, 1, 0);
    end_with(ENOSYS);
    load(offsetof(seccomp_data, nr));
    add(BPF_JMP | BPF_JGE | BPF_K, kFirstNewCall, 0, 2);
    add(BPF_JMP | BPF_JGE | BPF_K, kFirstPrivateCall, 1, 0);
    end_with(ENOSYS);
    for (const long call : kRefused) on(call, EPERM);
    for (const long call : kIgnored) on(call, 0);
    // As of a pipe or a file: no typing on the caller's terminal, no flags of files, no devices.
    on(SYS_ioctl, ENOTTY);
    for (const RefusedArgument& refused : kRefusedArguments) on(refused);
    add(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
  }

  [[nodiscard]] sock_fprog program() {
    return {.len = static_cast<uint16_t>(instructions_.size()), .filter = instructions_.data()};
  }

 private:
  void add(uint16_t code, uint32_t value, uint8_t if_true = 0, uint8_t if_false = 0) {
    instructions_.push_back({code, if_true, if_false, value});
  }
  void load(size_t offset) { add(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset)); }
  void end_with(int error) {
    add(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<uint32_t>(error));
  }
  void on(long call, int error) {
    add(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(call), 0, 1);
    end_with(error);
  }
  // Only the lower half of an argument counts: the kernel takes no more of these.
  void on(const RefusedArgument& refused) {
    add(BPF_JMP | BPF_JEQ | BPF_K, refused.call, 0, 5);
    load(offsetof(seccomp_data, args) + refused.argument * sizeof(uint64_t));
    add(BPF_ALU | BPF_AND | BPF_K, refused.bits);
    const bool is_allowed = refused.is_allowed;
    add(BPF_JMP | BPF_JEQ | BPF_K, refused.value, is_allowed ? 1 : 0, is_allowed ? 0 : 1);
    end_with(EPERM);
    load(offsetof(seccomp_data, nr));
  }

  std::vector<sock_filter> instructions_;
};

}  // namespace

void refuse_system_calls() {
  if (kMachine == 0) return;
  Filter filter;
  const sock_fprog program = filter.program();
  (void)prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0);
}

}  // namespace client
