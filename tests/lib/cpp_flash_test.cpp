// flash.hpp: saving and restoring areas, with an observer and without.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <system_error>
#include <vector>

#include "base/flash_areas.h"
#include "support/flash/backup_run.h"
#include "support/hooks/log_capture.h"
#include "tarvio/tarvio.hpp"

namespace tarvio_test {
namespace {

using tarvio::Area;
using tarvio::FlashEvent;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// With tools that only make the files that they are asked for.
class CppFlash : public Backup {
 protected:
  // What a call gives, and in commands_ the tools that it has run.
  template <class Call>
  std::error_code run(Call call) {
    const ShellCommands commands([&](const std::string& line) { return answer(line); });
    const std::error_code error = call();
    commands_ = commands.lines();
    return error;
  }

  void make_image() {
    EXPECT_EQ(run([] {
                return tarvio::back_up({Area::kKernel, Area::kBootloader}, "work", "image.tbx");
              }),
              std::error_code());
  }

  const LogCapture log_;

 private:
  std::string answer(const std::string& line) const {
    if (!failing_.empty() && line.starts_with(failing_)) return "echo Input/output error";
    const size_t file = line.find("-f ");
    if (file != std::string::npos) return "touch " + line.substr(file + 3);
    return line.starts_with("tar") || line.starts_with("ar") ? line : "true";
  }
};

TEST(CppFlashArea, HasTheNamesOfTheTableOfAreas) {
  int at = 0;
  for (const tarvio::FlashArea& area : tarvio::kFlashAreas) {
    EXPECT_STREQ(tarvio::name_of(static_cast<Area>(at++)), area.name);
  }
  EXPECT_EQ(at - 1, static_cast<int>(Area::kHibernation));
}

TEST_F(CppFlash, SavesAreasInAnImagePackage) {
  make_image();
  directory_.shell("[ \"$(ar t work/image.tbx | xargs)\" = 'uImage boot control.tar.gz' ]");
}

TEST_F(CppFlash, SavesAreasAsFilesAlone) {
  EXPECT_FALSE(run([] { return tarvio::back_up({Area::kKernel}, "work", ""); }));
  EXPECT_THAT(work_files(), ElementsAre("control.tar.gz", "uImage"));
  EXPECT_THAT(commands_, Not(Contains(StartsWith("ar"))));
}

TEST_F(CppFlash, ReportsEachStepToItsObserver) {
  std::vector<std::string> seen;
  const auto observe = [&](const FlashEvent& event) {
    if (event.kind == TQ_FLASH_BEGIN) seen.emplace_back(event.area == nullptr ? "-" : event.area);
    return std::error_code();
  };
  EXPECT_FALSE(run([&] { return tarvio::back_up({Area::kKernel}, "work", "image.tbx", observe); }));
  EXPECT_THAT(seen, ElementsAre("-", "-", "kernel", "kernel", "kernel", "-", "-"));
}

TEST_F(CppFlash, EndsWithTheErrorOfItsObserver) {
  const auto cancel = [](const FlashEvent& event) {
    return std::make_error_code(event.step == TQ_FLASH_DUMP ? std::errc::operation_canceled
                                                            : std::errc());
  };
  const std::error_code error =
      run([&] { return tarvio::back_up({Area::kKernel}, "work", "image.tbx", cancel); });
  EXPECT_EQ(error, std::make_error_code(std::errc::operation_canceled));
  EXPECT_THAT(commands_, Not(Contains(StartsWith("nanddump"))));
}

TEST_F(CppFlash, StopsABackupAtADumpThatFails) {
  failing_ = "nanddump";
  EXPECT_EQ(run([] {
              return tarvio::back_up({Area::kKernel, Area::kBootloader}, "work", "image.tbx");
            }),
            std::errc::io_error);
  EXPECT_THAT(work_files(), Not(Contains("image.tbx")));
  EXPECT_THAT(commands_, Not(Contains(testing::HasSubstr("mtd1"))));
}

TEST_F(CppFlash, SaysWhyAFileSystemCannotBeMounted) {
  mounts_.failing = "mount";
  EXPECT_EQ(run([] { return tarvio::back_up({Area::kRootfs}, "work", "image.tbx"); }),
            std::errc::io_error);
}

TEST_F(CppFlash, ReturnsWhatNoStepReports) {
  EXPECT_EQ(run([] { return tarvio::back_up({Area::kKernel}, "no-such", "image.tbx"); }),
            std::errc::no_such_file_or_directory);
  EXPECT_THAT(commands_, IsEmpty());
}

// The C calls would see another path.
TEST_F(CppFlash, HasNoNulInItsPaths) {
  const std::string cut("work\0x", 6);
  EXPECT_EQ(run([&] { return tarvio::back_up({Area::kKernel}, cut, "image.tbx"); }),
            std::errc::invalid_argument);
  EXPECT_EQ(run([&] { return tarvio::back_up({Area::kKernel}, "work", cut); }),
            std::errc::invalid_argument);
  EXPECT_EQ(run([&] { return tarvio::restore("image.tbx", cut); }), std::errc::invalid_argument);
  EXPECT_EQ(run([&] { return tarvio::restore(cut, "work"); }), std::errc::invalid_argument);
  EXPECT_THAT(commands_, IsEmpty());
}

TEST_F(CppFlash, RestoresAreas) {
  make_image();
  EXPECT_FALSE(run([] { return tarvio::restore("image.tbx", "work"); }));
  EXPECT_THAT(commands_, Contains(StartsWith("nandwrite /dev/mtd3")));
  EXPECT_THAT(commands_, Contains(StartsWith("nandwrite /dev/mtd1")));
}

TEST_F(CppFlash, RestoresTheOtherAreasAfterOneThatFailsAndReportsIt) {
  make_image();
  failing_ = "flash_eraseall /dev/mtd3";
  EXPECT_EQ(run([] { return tarvio::restore("image.tbx", "work"); }), std::errc::io_error);
  EXPECT_THAT(commands_, Contains(StartsWith("nandwrite /dev/mtd1")));
}

TEST_F(CppFlash, StopsARestoreForItsObserver) {
  make_image();
  const auto stop_at_failure = [](const FlashEvent& event) { return tarvio::error_of(event.code); };
  failing_ = "flash_eraseall /dev/mtd3";
  EXPECT_EQ(run([&] { return tarvio::restore("image.tbx", "work", stop_at_failure); }),
            std::errc::io_error);
  EXPECT_THAT(commands_, Not(Contains(StartsWith("nandwrite"))));
}

TEST_F(CppFlash, TakesItsObserverAway) {
  make_image();
  failing_ = "nanddump";
  EXPECT_EQ(back_up({"kernel"}), 0);  // nobody stops it
}

}  // namespace
}  // namespace tarvio_test
