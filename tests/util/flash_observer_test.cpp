// What an observer sees of a backup and of a restore, and how it stops them.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/files.h"
#include "support/flash/flash_device.h"
#include "support/hooks/log_capture.h"
#include "support/shell_commands.h"
#include "support/string_list.h"
#include "support/work_directory.h"
#include "tarvio/backup.h"
#include "tarvio/log.h"
#include "tarvio/nand.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::StartsWith;

constexpr int kStop = 77;

// "begin dump kernel ./uImage /dev/mtd3 0x0 1966080 bytes"; of what is not there nothing.
std::string text_of(const tq_flash_event& event) {
  const char* const kinds[] = {"", "begin", "line", "end"};
  const char* const steps[] = {"",        "version", "controls", "dump",  "cut",
                               "rebuild", "pack",    "unpack",   "erase", "write"};
  std::string text = std::string(kinds[event.kind]) + " " + steps[event.step];
  for (const char* string : {event.area, event.file, event.device}) {
    if (string != nullptr) text += std::string(" ") + string;
  }
  if (event.kind == TQ_FLASH_LINE) return text + ": " + event.line;
  char numbers[64];
  (void)snprintf(numbers, sizeof numbers, " 0x%x %llu", event.start,
                 static_cast<unsigned long long>(event.bytes));
  if (event.device != nullptr || event.bytes != 0) text += numbers;
  if (event.code != 0) text += " code " + std::to_string(event.code);
  return text;
}

// Notes what it sees, as long as it lives.
class Observer {
 public:
  // Stops the work at the n-th event, from 1.
  explicit Observer(size_t stop_at = 0) : stop_at_(stop_at) {
    const tq_flash_observer observer = {[](const tq_flash_event* event, void* user) {
                                          return static_cast<Observer*>(user)->take(*event);
                                        },
                                        this};
    tq_set_flash_observer(&observer);
  }
  ~Observer() { tq_set_flash_observer(nullptr); }
  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;

  std::function<void()> on_event = [] {};

  const std::vector<std::string>& events() const { return events_; }
  // Without those of lines.
  std::vector<std::string> steps() const {
    std::vector<std::string> steps;
    for (const std::string& event : events_) {
      if (!event.starts_with("line")) steps.push_back(event);
    }
    return steps;
  }

 private:
  int take(const tq_flash_event& event) {
    events_.push_back(text_of(event));
    on_event();
    return events_.size() == stop_at_ ? kStop : 0;
  }

  const size_t stop_at_;
  std::vector<std::string> events_;
};

class FlashObserver : public testing::Test {
 protected:
  FlashObserver() {
    device_.make_area("/dev/mtd1", 2, "boot loader ");
    device_.make_area("/dev/mtd2", 16, "boot settings ", {5});
    device_.make_area("/dev/mtd3", 16, "kernel ", {4});
    device_.make_area("/dev/mtd4", 4, "root file system ", {1});
    write_file("/dev/mtdblock4.tree/root", "of the root file system\n");
    write_kernel_command_line("console=ttyAMA0 root=/dev/mtdblock4 rw\n");
    fs::create_directory(directory_ / "work");
  }

  int back_up(const std::vector<const char*>& areas) const {
    StringList list;
    for (const char* area : areas) list.add(area);
    fs::remove(directory_ / "work/image.tbx");
    return tq_lib_backup_areas(list.get(), "work", "image.tbx", 1);
  }
  // Of the package of such a backup.
  int restore() const { return tq_lib_backup_restore("image.tbx", "work"); }

  const WorkDirectory directory_;
  const FlashDevice device_;
  MountHooks mounts_;
};

TEST_F(FlashObserver, SeesEachStepOfABackup) {
  const Observer observer;
  ASSERT_EQ(back_up({"bootsetting", "rootfs"}), 0);
  const std::string archive =
      std::to_string(fs::file_size(directory_ / "work/rootfs"));  // an area's file stays
  const std::vector<std::string> steps = observer.steps();
  ASSERT_EQ(steps.size(), 18U);
  EXPECT_THAT(std::vector(steps.begin(), steps.end() - 4),
              ElementsAre("begin version", "end version code 2", "begin controls ./control",
                          testing::MatchesRegex("end controls ./control 0x0 [0-9]+"),
                          "begin dump bootsetting ./bootsetting /dev/mtd2 0x0 106496",
                          // Fifteen good blocks, of which a part is kept.
                          "end dump bootsetting ./bootsetting /dev/mtd2 0x0 1966080",
                          "begin cut bootsetting ./bootsetting /dev/mtd2 0x0 106496",
                          "end cut bootsetting ./bootsetting /dev/mtd2 0x0 106496",
                          "begin pack bootsetting ./bootsetting 0x0 106496",
                          "end pack bootsetting ./bootsetting 0x0 106496",
                          "begin rebuild rootfs ./rootfs /dev/mtdblock4 0x0 0",
                          "end rebuild rootfs ./rootfs /dev/mtdblock4 0x0 " + archive,
                          "begin pack rootfs ./rootfs 0x0 " + archive,
                          "end pack rootfs ./rootfs 0x0 " + archive));
  EXPECT_THAT(std::vector(steps.end() - 4, steps.end()),
              ElementsAre("begin controls ./control.tar.gz",
                          StartsWith("end controls ./control.tar.gz 0x0 "),
                          StartsWith("begin pack ./control.tar.gz 0x0 "),
                          StartsWith("end pack ./control.tar.gz 0x0 ")));
}

TEST_F(FlashObserver, SeesEachStepOfARestore) {
  ASSERT_EQ(back_up({"kernel"}), 0);
  const Observer observer;
  ASSERT_EQ(restore(), 0);
  const std::string package = std::to_string(fs::file_size(directory_ / "work/image.tbx"));
  EXPECT_THAT(observer.steps(),
              ElementsAre("begin controls image.tbx", "end controls image.tbx 0x0 " + package,
                          "begin unpack kernel ./uImage", "end unpack kernel ./uImage 0x0 1966080",
                          "begin erase kernel /dev/mtd3 0x0 0", "end erase kernel /dev/mtd3 0x0 0",
                          "begin write kernel ./uImage /dev/mtd3 0x0 1966080",
                          "end write kernel ./uImage /dev/mtd3 0x0 1966080"));
}

TEST_F(FlashObserver, SeesTheRangesOfTheHibernationInformation) {
  const ShellCommands commands;
  const Observer observer;
  (void)back_up({"hibernation"});
  (void)tq_tbx_resotore_image("", "./hibernation", "/dev/mtd6", 0, TQ_IMAGE_HIBERNATION);
  EXPECT_THAT(observer.steps(),
              IsSupersetOf({"begin dump hibernation ./hibernationinfo /dev/mtd2 0x120000 131072",
                            "begin cut hibernation ./hibernationinfo /dev/mtd2 0x120000 131072",
                            "begin erase hibernation /dev/mtd2 0x120000 524288",
                            "end write hibernation ./hibernationinfo /dev/mtd2 0x120000 0",
                            "begin erase hibernation /dev/mtd6 0x0 0"}));
}

TEST_F(FlashObserver, SeesNoAreaInAnImageOfAnotherType) {
  const ShellCommands commands;
  const Observer observer;
  (void)tq_tbx_resotore_image("", "file", "/dev/mtd9", 0, 99);
  EXPECT_EQ(observer.events().front(), "begin erase /dev/mtd9 0x0 0");
}

TEST_F(FlashObserver, SeesTheLinesOfATool) {
  const Tool nanddump("nanddump", "printf 'first\\r\\n\\n'; printf %300s last >&2");
  const Observer observer;
  (void)tq_nanddump("/dev/mtd1", "dump", 0, 0);
  EXPECT_THAT(observer.events(),
              ElementsAre("begin dump dump /dev/mtd1 0x0 0", "line dump dump /dev/mtd1: first",
                          "line dump dump /dev/mtd1: ",
                          "line dump dump /dev/mtd1: " + std::string(255, ' '),
                          "line dump dump /dev/mtd1: " + std::string(41, ' ') + "last",
                          "end dump dump /dev/mtd1 0x0 0"));
}

TEST_F(FlashObserver, SeesTheStepBeforeItsToolRuns) {
  const Tool erase("flash_eraseall", "true");
  Observer observer;
  std::vector<bool> has_run;
  observer.on_event = [&] { has_run.push_back(!erase.runs().empty()); };
  (void)tq_erase_flash_all("/dev/mtd1");
  EXPECT_THAT(has_run, ElementsAre(false, true));
}

// What the results of the calls hide.
TEST_F(FlashObserver, SeesHiddenFailures) {
  const ShellCommands commands([](const std::string& line) -> std::string {
    return line.starts_with("nanddump") ? "echo Input/output error" : "true";
  });
  const Observer observer;
  for (const char* file : {"boot", "hibernation", "hibernationinfo"}) {
    write_file(directory_ / "work" / file, "old");
  }
  EXPECT_EQ(back_up({"bootloader", "hibernation"}), 0);
  EXPECT_THAT(observer.events(),
              IsSupersetOf({"line dump bootloader ./boot /dev/mtd1: Input/output error",
                            "end dump bootloader ./boot /dev/mtd1 0x0 3 code 5",
                            "end dump hibernation ./hibernationinfo /dev/mtd2 0x120000 3 code 5",
                            "end dump hibernation ./hibernation /dev/mtd6 0x0 3 code 5"}));
}

TEST_F(FlashObserver, SeesHiddenFailuresOfARestore) {
  ASSERT_EQ(back_up({"bootloader", "kernel"}), 0);
  const Observer observer;
  const Tool erase("flash_eraseall", "echo 'error 5 (Input/output error)'");
  EXPECT_EQ(restore(), 0);
  EXPECT_THAT(observer.events(), IsSupersetOf({"end erase bootloader /dev/mtd1 0x0 0 code 5",
                                               "end erase kernel /dev/mtd3 0x0 0 code 5"}));
}

TEST_F(FlashObserver, SeesAFileThatCannotBeExtracted) {
  ASSERT_EQ(back_up({"kernel"}), 0);
  const ShellCommands commands([](const std::string& line) {
    return line.find("./uImage") == std::string::npos ? line : "echo Input/output error";
  });
  const Observer observer;
  (void)restore();
  EXPECT_THAT(observer.events(), Contains("end unpack kernel ./uImage 0x0 1966080 code 5"));
}

TEST_F(FlashObserver, SeesAFileSystemThatCannotBeMounted) {
  mounts_.failing = "mount /dev/mtdblock4";
  const Observer observer;
  EXPECT_EQ(back_up({"rootfs"}), -1);
  EXPECT_EQ(observer.steps().back(), "end rebuild rootfs ./rootfs /dev/mtdblock4 0x0 0 code -1");
}

TEST_F(FlashObserver, SeesAnImageThatCannotBeBuilt) {
  const Tool mkfs("mkfs.jffs2", "echo 'error 28 (No space left on device)'");
  const Observer observer;
  EXPECT_EQ(back_up({"rootfs"}), ENOSPC);
  EXPECT_EQ(observer.steps().back(), "end rebuild rootfs ./rootfs /dev/mtdblock4 0x0 0 code 28");
}

TEST_F(FlashObserver, SeesADumpThatCannotBeCut) {
  const Hook truncate("truncate", [](const char*, off_t) {
    errno = ENOSPC;
    return -1;
  });
  const Observer observer;
  errno = 0;
  EXPECT_EQ(tq_nanddump("/dev/mtd1", "dump", 0, 1000), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(observer.steps().back(), "end cut dump /dev/mtd1 0x0 262144 code 28");
}

TEST_F(FlashObserver, ChangesNothing) {
  const auto run = [this] {
    const LogCapture log(TQ_LOG_DEBUG);
    const ShellCommands commands([](const std::string& line) { return line; });
    EXPECT_EQ(back_up({"bootsetting", "rootfs"}), 0);
    EXPECT_EQ(restore(), 0);
    std::vector<std::string> seen = commands.lines();
    for (const LogRecord& record : log.records()) seen.push_back(record.text);
    return seen;
  };
  (void)run();  // the first one finds no files of the one before
  const std::vector<std::string> without = run();
  const Observer observer;
  EXPECT_THAT(run(), ElementsAreArray(without));
}

// At each event in turn, with tools that print a line and make the file of a dump.
class StoppedFlashWork : public FlashObserver {
 protected:
  static std::string quick(const std::string& line) {
    if (line.find("control") != std::string::npos) return line;
    const size_t file = line.find("-f ");
    return "echo a line" + (file == std::string::npos ? "" : "; touch " + line.substr(file + 3));
  }

  void expect_stops(const std::function<int()>& work) {
    for (size_t n = 1;; ++n) {
      Observer observer(n);
      const ShellCommands commands(quick);
      size_t tools = 0;
      size_t mounts = 0;
      observer.on_event = [&] {
        tools = commands.lines().size();
        mounts = mounts_.calls.size();
      };
      const int result = work();
      if (observer.events().size() < n) {
        EXPECT_GT(n, 1U);
        EXPECT_EQ(result, 0);
        return;
      }
      EXPECT_EQ(result, kStop) << n;
      EXPECT_EQ(observer.events().size(), n);
      EXPECT_EQ(commands.lines().size(), tools) << observer.events().back();
      EXPECT_THAT(std::vector(mounts_.calls.begin() + static_cast<std::ptrdiff_t>(mounts),
                              mounts_.calls.end()),
                  Each(StartsWith("umount")))
          << observer.events().back();
      while (is_mounted(kOfflineRoot)) ::umount(kOfflineRoot);
    }
  }
};

TEST_F(StoppedFlashWork, OfABackup) {
  for (const char* command_line : {"root=/dev/mtdblock4\n", "root=/dev/mtdblock5\n"}) {
    write_kernel_command_line(command_line);
    expect_stops([this] { return back_up({"bootloader", "rootfs"}); });
  }
}

TEST_F(StoppedFlashWork, OfABackupOfTheHibernationArea) {
  expect_stops([this] { return back_up({"hibernation"}); });
}

TEST_F(StoppedFlashWork, OfARestore) {
  ASSERT_EQ(back_up({"bootloader", "kernel"}), 0);
  expect_stops([this] { return restore(); });
}

TEST_F(StoppedFlashWork, OfOneArea) {
  expect_stops([] {
    return tq_tbx_resotore_image("", "./hibernation", "/dev/mtd6", 0, TQ_IMAGE_HIBERNATION);
  });
}

TEST_F(StoppedFlashWork, LeavesADumpUncut) {
  const Observer observer(2);
  const Tool nanddump("nanddump", "PATH=${PATH#*:}\nnanddump \"$@\" 2>/dev/null");
  EXPECT_EQ(tq_nanddump("/dev/mtd1", "dump", 0, 1000), kStop);
  EXPECT_EQ(fs::file_size(directory_ / "dump"), 0x40000U);
}

TEST_F(StoppedFlashWork, GoesOnWithTheNextCall) {
  const Observer observer(1);
  EXPECT_EQ(tq_erase_flash_all("/dev/mtd1"), kStop);
  EXPECT_EQ(tq_erase_flash_all("/dev/mtd1"), 0);
}

TEST_F(FlashObserver, IsOneOfAThread) {
  const Observer observer;
  std::thread([] { (void)tq_erase_flash_all("/dev/mtd1"); }).join();
  EXPECT_THAT(observer.events(), IsEmpty());
}

TEST_F(FlashObserver, IsTakenAway) {
  const Observer observer;
  const tq_flash_observer without_function = {};
  for (const tq_flash_observer* none :
       {static_cast<const tq_flash_observer*>(nullptr), &without_function}) {
    const Observer other;
    tq_set_flash_observer(none);
    EXPECT_EQ(tq_erase_flash_all("/dev/mtd1"), 0);
    EXPECT_THAT(other.events(), IsEmpty());
  }
  EXPECT_THAT(observer.events(), IsEmpty());
}

TEST_F(FlashObserver, MayTakeItselfAway) {
  Observer observer;
  observer.on_event = [] { tq_set_flash_observer(nullptr); };
  EXPECT_EQ(tq_erase_flash_all("/dev/mtd1"), 0);
  EXPECT_EQ(observer.events().size(), 1U);
}

// Tools run at other times too.
TEST_F(FlashObserver, DoesNotSeeOtherTools) {
  const Observer observer;
  int bad_blocks = 0;
  EXPECT_EQ(tq_nand_count_badblock("/dev/mtd2", &bad_blocks), 0);
  EXPECT_EQ(bad_blocks, 1);
  EXPECT_THAT(observer.events(), IsEmpty());
}

}  // namespace
}  // namespace tarvio_test
