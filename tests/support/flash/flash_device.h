// The flash of the device, in the sandbox: a plain file for each area, worked on by the stand-ins
// of the flash tools, and a directory in the place of each file system.
#ifndef TARVIO_TESTS_SUPPORT_FLASH_FLASH_DEVICE_H
#define TARVIO_TESTS_SUPPORT_FLASH_FLASH_DEVICE_H

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/hooks/got_hook.h"

namespace tarvio_test {

inline constexpr char kOfflineRoot[] = "/mnt/root";

// Whether anything is mounted there.
inline bool is_mounted(const std::string& directory) {
  return read_file("/proc/self/mounts").find(" " + directory + " ") != std::string::npos;
}

class FlashDevice {
 public:
  FlashDevice() : path_before_(std::getenv("PATH")) {
    // An ordinary user's PATH may be without the tools of the system.
    ::setenv("PATH", (TARVIO_SANDBOX_TOOLS ":" + path_before_ + ":/usr/sbin").c_str(), 1);
    for (const char* tree : {"/dev/mtdblock4.tree", "/dev/mtdblock5.tree"}) {
      std::filesystem::create_directories(tree);
    }
  }
  ~FlashDevice() {
    while (is_mounted(kOfflineRoot) && ::umount(kOfflineRoot) == 0) {
    }
    ::setenv("PATH", path_before_.c_str(), 1);
    for (const auto& entry : std::filesystem::directory_iterator("/dev")) {
      if (entry.path().string().starts_with("/dev/mtd")) std::filesystem::remove_all(entry.path());
    }
  }
  FlashDevice(const FlashDevice&) = delete;
  FlashDevice& operator=(const FlashDevice&) = delete;

  // An area of so many erase blocks, of which some are bad, that holds the text again and again.
  void make_area(const std::string& device, size_t blocks, const std::string& text,
                 const std::vector<int>& bad = {}) const {
    std::string bytes = text;
    while (bytes.size() < blocks * 0x20000) bytes += bytes;
    bytes.resize(blocks * 0x20000);
    write_file(device, bytes);
    std::string map;
    for (const int block : bad) map += std::to_string(block) + '\n';
    if (!map.empty()) write_file(device + ".bad", map);
  }

 private:
  const std::string path_before_;
};

// Takes the library's mounts: a JFFS2 file system is the directory DEVICE.tree.
class MountHooks {
 public:
  // Each as "mount DEVICE DIRECTORY TYPE FLAGS" or "umount DIRECTORY".
  std::vector<std::string> calls;
  // What fails, by the beginning of such a line.
  std::string failing;

 private:
  bool fails(const std::string& call) {
    calls.push_back(call);
    if (failing.empty() || !call.starts_with(failing)) return false;
    errno = EIO;
    return true;
  }
  int mount(const char* source, const char* target, const char* type, unsigned long flags,
            const void* data) {
    EXPECT_EQ(data, nullptr);
    if (fails(std::string("mount ") + source + " " + target + " " + type + " " +
              std::to_string(flags))) {
      return -1;
    }
    return ::mount((std::string(source) + ".tree").c_str(), target, nullptr, MS_BIND, nullptr);
  }
  int umount(const char* target) {
    return fails(std::string("umount ") + target) ? -1 : ::umount(target);
  }

  Hook<std::function<int(const char*, const char*, const char*, unsigned long, const void*)>>
      mount_{"mount", [this](auto... arguments) { return mount(arguments...); }};
  Hook<std::function<int(const char*)>> umount_{
      "umount", [this](const char* target) { return umount(target); }};
};

}  // namespace tarvio_test

#endif
