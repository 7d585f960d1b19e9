// Whatever fails or ends a backup or a restore: no half of a package under its name, no success
// that is none, and the next run works.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "packages/ar_archive.h"
#include "support/flash/flash_client.h"
#include "support/hooks/got_hook.h"
#include "support/programs/old_kernel.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::StartsWith;

constexpr char kWithWords[] = "echo 'Input/output error' | tee /dev/stderr; exit 1";
constexpr char kWithoutAWord[] = "exit 1";

class FlashFailure : public FlashClient {
 protected:
  FlashFailure() {
    keep("boot", "/dev/mtd1", 0, 0x40000);
    keep("kernel", "/dev/mtd3", 0, 0x1e0000);
  }

  static int runs(const Tool& tool) {
    const std::string text = tool.runs();
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
  }

  // The old file, or a whole new one.
  static void expect_old_or_whole() {
    if (read_file("image.tbx") == "old") return;
    const client::ArchiveFile package("image.tbx");
    for (const char* member : {"boot", "rootfs", "control.tar.gz"}) {
      EXPECT_EQ(package.find(member).name, member);
    }
  }

  // Waits until the last tool of a client that was killed has ended.
  static void wait_for_lock() {
    const int lock = ::open("/run/tarvio-flash.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(::flock(lock, LOCK_EX), 0);
    ::close(lock);
  }

  FlashRun back_up_both() const { return back_up({"bootloader", "rootfs", "--overwrite"}); }
};

struct Fault {
  const char* tool;
  const char* name;
  const char* instead;
};

class FaultyTool : public FlashFailure, public testing::WithParamInterface<Fault> {};

TEST_P(FaultyTool, LeavesTheOldPackageOrAWholeOne) {
  for (int n = 1;; ++n) {
    write_file("image.tbx", "old");
    const Tool tool(GetParam().tool, in_run(n, GetParam().tool, GetParam().instead));
    const FlashRun ran = back_up_both();
    if (runs(tool) < n) {
      EXPECT_GT(n, 1);
      EXPECT_EQ(ran.status, 0) << ran.errors;
      break;
    }
    EXPECT_EQ(ran.status, 1) << n;
    EXPECT_EQ(read_file("image.tbx"), "old") << n;
    expect_only({"image.tbx"});
  }
  expect_old_or_whole();
}

// In the names of the tests in place of the bytes.
void PrintTo(const Fault& fault, std::ostream* text) { *text << fault.name; }

std::string name_of(const testing::TestParamInfo<Fault>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(InABackup, FaultyTool,
                         testing::Values(Fault{"nanddump", "Nanddump", kWithWords},
                                         Fault{"nanddump", "SilentNanddump", kWithoutAWord},
                                         Fault{"mkfs.jffs2", "Mkfs", kWithWords},
                                         Fault{"mkfs.jffs2", "SilentMkfs", kWithoutAWord},
                                         Fault{"ar", "Ar", kWithWords},
                                         Fault{"ar", "SilentAr", kWithoutAWord},
                                         Fault{"tar", "Tar", kWithWords},
                                         Fault{"tar", "SilentTar", kWithoutAWord}),
                         name_of);

class FaultyRestoreTool : public FlashFailure, public testing::WithParamInterface<Fault> {
 protected:
  void expect_restored() const {
    expect_holds("/dev/mtd1", 0, "boot");
    expect_holds("/dev/mtd3", 0, "kernel");
  }
};

TEST_P(FaultyRestoreTool, IsReportedAndTheNextRunWorks) {
  ASSERT_EQ(back_up({"bootloader", "kernel"}).status, 0);
  int failures = 0;
  for (int n = 1;; ++n) {
    wipe("/dev/mtd1");
    wipe("/dev/mtd3");
    const Tool tool(GetParam().tool, in_run(n, GetParam().tool, GetParam().instead));
    const FlashRun ran = run({"restore", "image.tbx", "--yes"}, become_old);
    expect_only({"image.tbx"});
    if (runs(tool) < n) {
      EXPECT_GT(n, 1);
      EXPECT_EQ(ran.status, 0) << ran.errors;
      break;
    }
    failures += ran.status == 0 ? 0 : 1;
    if (ran.status == 0) expect_restored();  // one of the runs does again what was done
  }
  EXPECT_GT(failures, 0);
  expect_restored();
}

INSTANTIATE_TEST_SUITE_P(InARestore, FaultyRestoreTool,
                         testing::Values(Fault{"nanddump", "Nanddump", kWithWords},
                                         Fault{"nanddump", "SilentNanddump", kWithoutAWord},
                                         Fault{"flash_eraseall", "Erase", kWithWords},
                                         Fault{"nandwrite", "Nandwrite", kWithWords},
                                         Fault{"nandwrite", "SilentNandwrite", kWithoutAWord},
                                         Fault{"ar", "Ar", kWithWords},
                                         Fault{"ar", "SilentAr", kWithoutAWord},
                                         Fault{"tar", "Tar", kWithWords},
                                         Fault{"tar", "SilentTar", kWithoutAWord}),
                         name_of);

// The library packs control files that are incomplete.
TEST_F(FlashFailure, AControlFileThatIsNotWrittenIsReported) {
  write_file("image.tbx", "old");
  for (const std::string name : {"control", "tqcontrol", "./tqcontrol"}) {
    for (const char* const instead : {"/nowhere/file", "/dev/full"}) {
      const Hook fopen("fopen", [&](const char* path, const char* mode) {
        if (path == name) write_file(path, "");
        return ::fopen(path == name ? instead : path, mode);
      });
      const FlashRun ran = back_up_both();
      EXPECT_EQ(ran.status, 1) << name << instead;
      EXPECT_THAT(ran.errors,
                  StartsWith("tarvio: cannot back up to 'image.tbx': writing the control files "
                             "failed: "))
          << name << instead;
      EXPECT_EQ(read_file("image.tbx"), "old");
      expect_only({"image.tbx"});
    }
  }
}

// Something else takes all the room before each run of each tool.
TEST_F(FlashFailure, AFullWorkDirectoryLeavesTheOldPackage) {
  fs::create_directory("small");
  ASSERT_EQ(::mount("small", "small", "tmpfs", 0, "size=7m"), 0);
  const std::string fill = directory_ / "small/fill";
  for (const std::string tool_name : {"nanddump", "ar", "tar"}) {
    for (int n = 1;; ++n) {
      write_file("small/image.tbx", "old");
      const Tool tool(tool_name, in_run(n, tool_name, "head -c 8m /dev/zero 2>&- >" + fill));
      const FlashRun ran =
          run({"backup", "bootloader", "kernel", "--to", "small/image.tbx", "--overwrite"});
      const bool has_filled = fs::remove(fill);
      EXPECT_EQ(has_filled, runs(tool) >= n);
      if (!has_filled) {
        EXPECT_EQ(ran.status, 0) << ran.errors;
        break;
      }
      EXPECT_EQ(ran.status, 1) << tool_name << n;
      EXPECT_EQ(read_file("small/image.tbx"), "old") << tool_name << n;
      EXPECT_EQ(names_in("small"), std::vector<std::string>{"image.tbx"});
    }
  }
  ::umount2("small", MNT_DETACH);
}

// By a signal that each tool sends itself.
TEST_F(FlashFailure, AnInterruptedBackupIsCleanedUp) {
  write_file("image.tbx", "old");
  for (const std::string tool : {"nanddump", "mkfs.jffs2", "ar", "tar"}) {
    const Tool ending(tool, "kill -TERM $CLIENT; exec sleep 60");
    const FlashRun ran = run({"backup", "--to", "image.tbx", "bootloader", "rootfs", "--overwrite"},
                             [] { ::setenv("CLIENT", std::to_string(::getpid()).c_str(), 1); });
    EXPECT_EQ(ran.status, -1) << tool;
    EXPECT_THAT(ran.errors,
                HasSubstr("tarvio: interrupted: nothing saved; 'image.tbx' is unchanged\n"));
    EXPECT_EQ(read_file("image.tbx"), "old");
    expect_only({"image.tbx"});
  }
  EXPECT_EQ(back_up_both().status, 0);
}

TEST_F(FlashFailure, AnInterruptedRestoreReportsTheStateOfTheAreas) {
  ASSERT_EQ(back_up({"bootloader", "kernel", "rootfs"}).status, 0);
  const Tool ending("nandwrite", in_run(2, "nandwrite", "kill -INT $CLIENT; exec sleep 60"));
  const FlashRun ran = run({"restore", "image.tbx", "--yes"},
                           [] { ::setenv("CLIENT", std::to_string(::getpid()).c_str(), 1); });
  EXPECT_EQ(ran.status, -1);
  EXPECT_EQ(ran.errors,
            "tarvio: interrupted: erased or half written: kernel; written: bootloader; unchanged: "
            "rootfs\n");
  expect_only({"image.tbx"});
}

// The kernel ends nobody's work on the flash in the middle: no other one may begin before.
TEST_F(FlashFailure, AToolThatOutlivesTheClientKeepsTheLock) {
  const Tool nanddump("nanddump", in_run(2, "nanddump", "kill -KILL $CLIENT; sleep 5"));
  EXPECT_EQ(run({"backup", "--to", "image.tbx", "bootloader"},
                [] { ::setenv("CLIENT", std::to_string(::getpid()).c_str(), 1); })
                .status,
            -1);
  EXPECT_THAT(back_up_both().errors,
              HasSubstr("another backup or restore is running on this device"));
  wait_for_lock();
  EXPECT_EQ(back_up_both().status, 0);
  expect_only({"image.tbx"});
}

// Fewer where each run takes several times as long.
#if defined(TARVIO_ADDRESS_SANITIZER) || defined(__arm__)
constexpr int kKills = 5;
#else
constexpr int kKills = 50;
#endif

class Killed : public FlashFailure, public testing::WithParamInterface<unsigned> {
 protected:
  // The client is killed, or asked to end, after a part of the time that it takes.
  void kill_at_random(const std::vector<std::string>& arguments, double share, int signal) {
    const pid_t client = start(arguments, [] {});
    std::this_thread::sleep_for(duration_ * share);
    ::kill(client, signal);
    (void)end_of(client);
    wait_for_lock();
    EXPECT_FALSE(is_mounted(kOfflineRoot));
  }

  void measure(const std::function<void()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    duration_ = std::chrono::steady_clock::now() - begin;
  }

  std::mt19937 random_{GetParam()};
  std::uniform_real_distribution<double> share_{0, 1.1};

 private:
  std::chrono::duration<double> duration_{};
};

TEST_P(Killed, ABackupLeavesTheOldPackageOrAWholeOne) {
  write_file("image.tbx", "old");
  measure([this] { EXPECT_EQ(back_up_both().status, 0); });
  for (int kill = 0; kill < kKills; ++kill) {
    if (kill % 2 == 0) write_file("image.tbx", "old");
    kill_at_random({"backup", "bootloader", "rootfs", "--to", "image.tbx", "--overwrite"},
                   share_(random_), kill % 3 == 0 ? SIGTERM : SIGKILL);
    expect_old_or_whole();
  }
  EXPECT_EQ(back_up_both().status, 0);
  expect_only({"image.tbx"});
}

TEST_P(Killed, ARestoreCanBeRunAgain) {
  ASSERT_EQ(back_up({"bootloader"}).status, 0);
  measure([this] { EXPECT_EQ(restore().status, 0); });
  for (int kill = 0; kill < kKills / 5; ++kill) {
    kill_at_random({"restore", "image.tbx", "--yes"}, share_(random_),
                   kill % 3 == 0 ? SIGTERM : SIGKILL);
  }
  EXPECT_EQ(restore().status, 0);
  expect_holds("/dev/mtd1", 0, "boot");
  expect_only({"image.tbx"});
}

std::string times_of(const testing::TestParamInfo<unsigned>& seed) {
  return std::to_string(kKills) + "TimesWithSeed" + std::to_string(seed.param);
}

INSTANTIATE_TEST_SUITE_P(AtRandomMoments, Killed, testing::Values(1U, 2U, 3U, 4U), times_of);

}  // namespace
}  // namespace tarvio_test
