// A device that has all that tarvio doctor looks for, until a test takes something away.
#ifndef TARVIO_TESTS_TARVIO_COMMANDS_DOCTOR_H
#define TARVIO_TESTS_TARVIO_COMMANDS_DOCTOR_H

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/com/one_reply.h"
#include "support/files.h"
#include "support/flash/flash_device.h"
#include "support/packages/package_listing.h"
#include "support/programs/tarvio.h"
#include "support/programs/written_state.h"

namespace tarvio_test {

inline constexpr char kMtd[] = "/sys/class/mtd/";
inline constexpr char kOwnVersion[] = "0\n" TARVIO_VERSION "\n";
inline constexpr char kReport[] = "Jan 12 00:00:12 board user.err webapp[12]: disk full\n";

// A file system in memory, as long as this lives.
class MountedMemory {
 public:
  explicit MountedMemory(std::string directory, const std::string& size = "1g")
      : directory_(std::move(directory)) {
    std::filesystem::create_directories(directory_);
    EXPECT_EQ(::mount("memory", directory_.c_str(), "tmpfs", 0, ("size=" + size).c_str()), 0);
  }
  ~MountedMemory() { ::umount2(directory_.c_str(), MNT_DETACH); }
  MountedMemory(const MountedMemory&) = delete;
  MountedMemory& operator=(const MountedMemory&) = delete;

 private:
  const std::string directory_;
};

class Doctor : public WithoutPackages {
 protected:
  using Json = nlohmann::json;

  Doctor() {
    add_package("clock");
    add_partition(1, 0x40000);
    add_partition(2, 0x200000);
    add_partition(3, 0x200000);
    add_partition(4, 0x3c00000);
    add_partition(5, 0x4000000);
    add_partition(6, 0x8000000);
    add_device("/dev/mtdblock4");
    add_device("/dev/mtdblock5");
    write_state("");
    write_file("/var/log/messages", kReport);
  }

  // As the kernel shows it.
  static void add_partition(int number, size_t bytes, size_t block_bytes = 0x20000,
                            int bad_blocks = 0) {
    const std::string name = "mtd" + std::to_string(number);
    const std::string directory = kMtd + name;
    std::filesystem::create_directories(directory);
    write_file(directory + "/size", std::to_string(bytes) + '\n');
    write_file(directory + "/erasesize", std::to_string(block_bytes) + '\n');
    write_file(directory + "/bad_blocks", std::to_string(bad_blocks) + '\n');
    add_device("/dev/" + name);
  }

  // Not every sandbox may make device files of its own.
  static void add_device(const std::string& path) {
    std::filesystem::remove(path);
    std::filesystem::create_symlink("/dev/null", path);
  }

  // With a manager that answers so.
  Ran run(
      std::vector<std::string> options = {}, const std::function<void()>& prepare = [] {},
      const std::string& answer = kOwnVersion) const {
    // The last timeout counts: by default none that a busy machine reaches.
    options.insert(options.begin(), {"doctor", kRoom, "--timeout", "300"});
    const OneReply manager(answer);
    return run_tarvio(options, prepare);
  }
  Json look(
      std::vector<std::string> options = {}, const std::function<void()>& prepare = [] {},
      const std::string& answer = kOwnVersion) const {
    options.emplace_back("--json");
    return Json::parse(run(options, prepare, answer).output);
  }

  // The row of a check.
  static Json row(const Json& rows, const std::string& check) {
    for (const Json& each : rows) {
      if (each["check"] == check) return each;
    }
    ADD_FAILURE() << "no row " << check << " in " << rows;
    return {};
  }
  Json row_of(
      const std::string& check, const std::function<void()>& prepare = [] {}) const {
    return row(look({}, prepare), check);
  }
  static Json expected(const std::string& check, const std::string& status,
                       const std::string& found, const Json& remedy = nullptr) {
    return {{"check", check}, {"status", status}, {"found", found}, {"remedy", remedy}};
  }

  static constexpr char kRoom[] = "/run/tmp/room";

 private:
  const FlashDevice device_;
  const MountedMemory kernel_{"/sys/class"};
  const MountedMemory room_{kRoom};
};

}  // namespace tarvio_test

#endif
