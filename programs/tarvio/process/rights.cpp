#include "process/rights.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>

#include "base/owners.h"
#include "process/failure.h"
#include "process/file_rules.h"
#include "process/system_call_rules.h"
#include "process/system_file.h"

namespace client {

namespace {

// An archive of 120 MiB takes ar, tar and gzip less than 8 MiB.
constexpr rlim_t kMaxMemory = 64UL << 20;
constexpr rlim_t kMaxOpenFiles = 64;
constexpr rlim_t kMaxMoreProcesses = 32;

using Capabilities = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

void bound(__rlimit_resource resource, rlim_t most) {
  rlimit limit = {};
  if (getrlimit(resource, &limit) != 0) return;
  limit.rlim_max = std::min(limit.rlim_max, most);
  limit.rlim_cur = std::min(limit.rlim_cur, most);
  (void)setrlimit(resource, &limit);
}

// Of this process, which may be larger than all that it runs.
rlim_t own_memory() {
  const std::string pages = read_system_file("/proc/self/statm");
  return strtoull(pages.c_str(), nullptr, 10) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

// The kernel counts all processes of the user, which cannot be more than there are: "0.20 0.18 0.12
// 1/80 11206". Nothing is bounded where it does not say.
rlim_t most_processes() {
  const std::string load = read_system_file("/proc/loadavg");
  const size_t slash = load.find('/');
  if (slash == std::string::npos) return RLIM_INFINITY;
  return strtoull(load.c_str() + slash + 1, nullptr, 10) + kMaxMoreProcesses;
}

// Inherited ones may be open for what the rules refuse, and count as open files.
void close_descriptors(int read, std::initializer_list<int> kept) {
  const tarvio::Directory all(opendir("/proc/self/fd"));
  if (all == nullptr) return;
  while (const dirent* const entry = readdir(all.get())) {
    const int each = static_cast<int>(strtol(entry->d_name, nullptr, 10));  // "." and "..": 0
    const bool is_needed = each <= STDERR_FILENO || each == read || each == dirfd(all.get()) ||
                           std::find(kept.begin(), kept.end(), each) != kept.end();
    if (!is_needed) (void)close(each);
  }
}

void bound_resources(rlim_t max_file_bytes) {
  bound(RLIMIT_FSIZE, max_file_bytes);
  (void)signal(SIGXFSZ,
               SIG_IGN);  // a write error, which tools report, before memory or flash is full
  bound(RLIMIT_CORE, 0);
  bound(RLIMIT_AS, own_memory() + kMaxMemory);
  bound(RLIMIT_NOFILE, kMaxOpenFiles);
  bound(RLIMIT_NPROC, most_processes());
}

bool can_read(const std::string& file) {
  return tarvio::Fd(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)).valid();
}

bool set_capabilities(uint32_t permitted, uint32_t effective) {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  Capabilities data = {};
  data[0].permitted = permitted;
  data[0].effective = effective;
  return syscall(SYS_capset, &header, data.data()) == 0;
}

bool has_capabilities() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  Capabilities data = {};
  return syscall(SYS_capget, &header, data.data()) != 0 ||
         (data[0].permitted | data[1].permitted) != 0;
}

// Another user's package may be one that only root's right to read everything opens.
void drop_capabilities(const std::string& file) {
  constexpr uint32_t kReadAll = 1U << CAP_DAC_READ_SEARCH;
  if (!has_capabilities()) return;
  if (set_capabilities(kReadAll, 0) && !file.empty() && !can_read(file) && errno == EACCES) {
    (void)set_capabilities(kReadAll, kReadAll);
  } else {
    (void)set_capabilities(0, 0);
  }
}

// With these, and without capabilities, tar reports no owners and modes that it cannot set.
void set_up_tools() {
  if (setenv("TAR_OPTIONS", "--no-same-owner --no-same-permissions", 1) != 0) {
    throw Failure::of_system("cannot set up a process");
  }
}

bool can_connect() { return tarvio::Fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)).valid(); }

// A file of its own process, so that a success does nothing.
bool can_write_elsewhere() {
  const tarvio::Fd file(open("/proc/self/comm", O_WRONLY | O_CLOEXEC));
  return file.valid() || errno != EACCES;
}

}  // namespace

void limit_to(const Rights& rights, std::initializer_list<int> kept) {
  if (!rights.are_limited) return;
  closelog();
  close_descriptors(rights.descriptor, kept);
  openlog(nullptr, LOG_NDELAY, LOG_USER);  // the library's messages take a socket
  set_up_tools();
  bound_resources(rights.max_file_bytes);
  // Kernels before 3.5 have neither this nor what follows.
  (void)prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  write_only_here();
  drop_capabilities(rights.file);
  refuse_system_calls();
}

std::string freedoms_left() {
  std::string freedoms;
  for (const auto& [is_left, freedom] :
       {std::pair{prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) != 1, "gaining privileges"},
        std::pair{has_capabilities(), "using capabilities"},
        std::pair{can_connect(), "opening sockets"},
        std::pair{can_write_elsewhere(), "writing outside of the work directory"}}) {
    if (is_left) freedoms += (freedoms.empty() ? "" : ", ") + std::string(freedom);
  }
  return freedoms;
}

}  // namespace client
