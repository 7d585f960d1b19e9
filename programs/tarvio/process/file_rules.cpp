#include "process/file_rules.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

#include "base/owners.h"

namespace client {

namespace {

// Landlock as the kernel documents it. Its header is missing from older toolchains, and lacks what
// came later in others; the numbers are the same on all machines of this system.
constexpr long kCreateRuleset = 444;
constexpr long kAddRule = 445;
constexpr long kRestrictSelf = 446;
constexpr unsigned kAskVersion = 1;
constexpr int kPathBeneath = 1;

struct Ruleset {
  uint64_t files;
  uint64_t network;
  uint64_t scopes;
};

struct PathBeneath {
  uint64_t files;
  int32_t directory;
} __attribute__((packed));

constexpr uint64_t kWriteFile = 1U << 1;
constexpr uint64_t kRename = 1U << 13;  // from directory to directory
constexpr uint64_t kTruncate = 1U << 14;
constexpr uint64_t kDeviceControl = 1U << 15;
// Of the first version, but for those that read: remove and make each kind of file.
constexpr uint64_t kChange = kWriteFile | 0x1ff0U;
constexpr uint64_t kTcp = 3;     // bind, connect
constexpr uint64_t kScopes = 3;  // abstract sockets, signals

// Versions add rights, and refuse those that they do not know.
Ruleset ruleset_of(long version) {
  return {.files = kChange | (version >= 2 ? kRename : 0) | (version >= 3 ? kTruncate : 0) |
                   (version >= 5 ? kDeviceControl : 0),
          .network = version >= 4 ? kTcp : 0,
          .scopes = version >= 6 ? kScopes : 0};
}

bool allow(const tarvio::Fd& ruleset, const char* path, uint64_t files) {
  const tarvio::Fd place(open(path, O_PATH | O_CLOEXEC));
  const PathBeneath rule = {.files = files, .directory = place.get()};
  return syscall(kAddRule, ruleset.get(), kPathBeneath, &rule, 0) == 0;
}

}  // namespace

void write_only_here() {
  const long version = syscall(kCreateRuleset, nullptr, 0, kAskVersion);
  if (version < 1) return;
  const Ruleset handled = ruleset_of(version);
  const tarvio::Fd ruleset(static_cast<int>(syscall(kCreateRuleset, &handled, sizeof handled, 0)));
  if (allow(ruleset, ".", handled.files) &&
      allow(ruleset, "/dev/null", handled.files & (kWriteFile | kTruncate))) {
    (void)syscall(kRestrictSelf, ruleset.get(), 0);
  }
}

}  // namespace client
