#include "flash/flash_guard.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "process/failure.h"
#include "process/kernel_text.h"
#include "process/system_file.h"

namespace client {

namespace {

constexpr char kLockFile[] = "/run/tarvio-flash.lock";
constexpr mode_t kOwnerOnly = 0600;

// The tools of a run that was killed need a moment to be gone, and with them their mounts.
constexpr int kMaxTries = 20;
constexpr useconds_t kBetweenTries = 100'000;

[[noreturn]] void fail_locked() {
  throw Failure(EBUSY, "another backup or restore is running on this device");
}

// What cannot be read does not say that an area is unused.
std::string known_text_of(const char* path) {
  std::string text = read_system_file(path);
  if (text.empty()) {
    throw Failure(EIO, std::string("cannot read '") + path +
                           "', so what uses the flash memory is not known; use --force to write "
                           "anyway");
  }
  return text;
}

// What the kernel calls an area as a block device, "/dev/mtdblockN".
std::string block_device_of(const tarvio::FlashArea& area) {
  const std::string target = area.target;
  return "/dev/mtdblock" + target.substr(target.find_first_of("0123456789"));
}

bool is_root(const std::string& device) {
  return root_in(known_text_of("/proc/cmdline")) == device;
}

// Where it is mounted; empty when it is not.
std::string mount_point_of(const std::string& device) {
  for (const Mount& mount : mounts_in(known_text_of("/proc/self/mounts"))) {
    if (mount.device == device) return mount.directory;
  }
  return "";
}

}  // namespace

FlashLock::FlashLock()
    : file_(open(kLockFile, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kOwnerOnly)) {
  if (!file_.valid()) {
    throw Failure(errno, std::string("cannot lock the flash memory with '") + kLockFile + "': " +
                             strerror(errno) + (errno == EACCES ? "; run tarvio as root" : ""));
  }
  for (int tries = 1; flock(file_.get(), LOCK_EX | LOCK_NB) != 0; ++tries) {
    if (errno != EWOULDBLOCK) {
      throw Failure::of_system(std::string("cannot lock '") + kLockFile + "'");
    }
    if (tries == kMaxTries) fail_locked();
    (void)usleep(kBetweenTries);
  }
}

void FlashLock::share_with_tools() const { (void)fcntl(file_.get(), F_SETFD, 0); }

void keep_mounts_private() {
  const bool is_apart = unshare(CLONE_NEWNS) == 0;
  if (!is_apart && errno == EPERM) return;  // who may not do that may not mount either
  if (!is_apart || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    throw Failure::of_system("cannot make the mounts private");
  }
}

std::string use_of(const tarvio::FlashArea& area) {
  const std::string device = block_device_of(area);
  if (is_root(device)) return "the system is running from it";
  const std::string place = mount_point_of(device);
  return place.empty() ? "" : "mounted on " + place;
}

}  // namespace client
