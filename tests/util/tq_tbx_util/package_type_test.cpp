// What kind of package a package file is.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/operands.h"
#include "support/shell_commands.h"
#include "support/string_list.h"
#include "support/unit_messages.h"
#include "support/work_directory.h"
#include "tarvio/log.h"
#include "tarvio/tbx.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kUnit[] = "util/tq_tbx_util";
constexpr int32_t kUnwritten = -7;

TEST(PackageTypeCode, Is2ForAnApplicationAnd0ForEverythingElse) {
  EXPECT_EQ(tq_tbx_conv_package_type("Application"), 2);
  for (const char* category :
       {"Image", "", "application", "Applications", "Applicatio", "Application ", "Library"}) {
    EXPECT_EQ(tq_tbx_conv_package_type(category), 0) << category;
  }
  EXPECT_EQ(tq_tbx_conv_package_type(nullptr), 0);
}

TEST(PackageSubtypeCode, FollowsItsTable) {
  for (const auto& [subcategory, code] : {std::pair{"Application_Native", 0U},
                                          {"Application_Java", 1U},
                                          {"Application_Browser", 2U},
                                          {"Application_Jsp", 3U},
                                          {"Application_Other", 4U},
                                          {"Image_All", 5U},
                                          {"Image_Rootfs", 6U},
                                          {"Image_Kernel", 7U},
                                          {"Image_Hibernation", 8U},
                                          {"Image_Data", 10U},
                                          {"Image_Other", 13U}}) {
    EXPECT_EQ(tq_tbx_conv_package_subtype(subcategory), code) << subcategory;
  }
}

TEST(PackageSubtypeCode, Is151ForEverythingElse) {
  for (const char* subcategory : {"", "Image_Kernel2", "Image_Boot", "image_data", "Image_Data ",
                                  "Application", "Image_Settings", "Image_Loader"}) {
    EXPECT_EQ(tq_tbx_conv_package_subtype(subcategory), 151U) << subcategory;
  }
  EXPECT_EQ(tq_tbx_conv_package_subtype(nullptr), 151U);
}

class PackageType : public testing::Test {
 protected:
  // Leaves ./control.tar.gz with such a ./tqcontrol.
  void make_control_archive(std::string_view tqcontrol) const {
    write_file("tqcontrol", tqcontrol);
    work_.shell("tar czf control.tar.gz ./tqcontrol; rm tqcontrol");
  }
  // Leaves app.tbx.
  void build(std::string_view tqcontrol) const {
    make_control_archive(tqcontrol);
    work_.shell("rm -f app.tbx; ar rc app.tbx control.tar.gz; rm control.tar.gz");
  }
  int ask(const char* path = "app.tbx") {
    return tq_tbx_get_package_type(path, &type_, targets_.get());
  }

  const WorkDirectory work_;
  int32_t type_ = kUnwritten;
  StringList targets_;
};

TEST_F(PackageType, IsThatOfTheCategory) {
  build("TqPackageCategory: Application\nTqPackageSubCategory: Application_Native\n");
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(type_, 2);
  for (const char* category : {"Image", "Other"}) {
    build("TqPackageCategory: " + std::string(category) + "\n");
    type_ = kUnwritten;
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(type_, 0);
  }
  EXPECT_THAT(targets_.texts(), IsEmpty());
}

TEST_F(PackageType, WithoutACategoryIs0) {
  build("TqPackageSubCategory: Application_Native\n");
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(type_, 0);
}

TEST_F(PackageType, IsNotWrittenWithoutAnyPair) {
  for (const char* tqcontrol : {"", "no pair\n", "TqDataTarget:/dev/mtd1\n"}) {
    build(tqcontrol);
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(type_, kUnwritten);
  }
  EXPECT_THAT(targets_.texts(), ElementsAre("TqDataTarget:/dev/mtd1\n"));
}

// A hostile package may hold such a file, which is sparse.
TEST_F(PackageType, IsNotReadFromAFileThatIsLargerThan128MiB) {
  write_file("tqcontrol", "TqPackageCategory: Image\nTqDataTarget: kernel\n");
  work_.shell("truncate -s 1T tqcontrol; tar cSzf control.tar.gz ./tqcontrol; rm tqcontrol");
  EXPECT_EQ(ask(""), ENOENT);
  EXPECT_EQ(type_, kUnwritten);
  EXPECT_THAT(targets_.texts(), IsEmpty());
}

TEST_F(PackageType, ComesWithTheLinesOfTheTargets) {
  build(
      "TqDataTarget: kernel /dev/mtd3\nTqPackageCategory: Image\nTqDataTarget:rootfs\r\n"
      " TqDataTarget: indented\ntqdatatarget: lower\nTqDataTargets: other\nTqDataTarget: last");
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(type_, 0);
  EXPECT_THAT(targets_.texts(), ElementsAre("TqDataTarget: kernel /dev/mtd3\n",
                                            "TqDataTarget:rootfs\r\n", "TqDataTarget: last"));
}

TEST_F(PackageType, AppendsToTheTargetsThatAreThere) {
  build("TqDataTarget: a\n");
  targets_.add("before");
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(ask(), 0);
  EXPECT_THAT(targets_.texts(), ElementsAre("before", "TqDataTarget: a\n", "TqDataTarget: a\n"));
}

TEST_F(PackageType, TakesALineEndForATargetButNotTheKeyAlone) {
  build("TqDataTarget:\nTqDataTarget:");
  EXPECT_EQ(ask(), 0);
  EXPECT_THAT(targets_.texts(), ElementsAre("TqDataTarget:\n"));
}

TEST_F(PackageType, ReadsALongLineInPieces) {
  const std::string key = "TqDataTarget:";
  const std::string longest = key + std::string(255 - key.size(), 'x');
  build(longest + "y\n" + longest + key + "z\n");
  EXPECT_EQ(ask(), 0);
  EXPECT_THAT(targets_.texts(), ElementsAre(longest, longest, key + "z\n"));
}

TEST_F(PackageType, IsNotAskedOfAPathWithAShellMetacharacter) {
  for (const std::string& name : refused_operands()) {
    const std::string file = name + ".tbx;touch y;true";
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_THAT(commands_of([&] { EXPECT_EQ(ask(file.c_str()), EINVAL) << file; }), IsEmpty());
    EXPECT_THAT(unit_messages(log, kUnit),
                ElementsAre("debug: check tbx file image " + file,
                            StartsWith("warning: tq_tbx_get_package_type: " + file + ": ")));
  }
  EXPECT_EQ(type_, kUnwritten);
}

TEST_F(PackageType, IsAskedOfEveryOtherPath) {
  for (const std::string& name : taken_operands()) {
    build("TqPackageCategory: Image\n");
    fs::rename("app.tbx", name);
    EXPECT_EQ(ask(name.c_str()), 0) << name;
  }
}

TEST_F(PackageType, LogsWhatItChecksAndFinds) {
  build("TqDataTarget: a\nTqDataTarget: 100%s");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(ask(), 0);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: check tbx file image app.tbx",
                          "debug: found image destination: TqDataTarget: a\n",
                          "debug: found image destination: TqDataTarget: 100%s"));
}

TEST_F(PackageType, RemovesItsWorkingFiles) {
  build("TqPackageCategory: Image\n");
  write_file("control.tar.gz", "of before");
  write_file("tqcontrol", "of before");
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(type_, 0);
  EXPECT_THAT(work_.names(), ElementsAre("app.tbx"));
}

TEST_F(PackageType, WithAnEmptyPathIsThatOfTheControlArchiveThatIsThere) {
  make_control_archive("TqPackageCategory: Application\n");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(ask(""), 0);
  EXPECT_EQ(type_, 2);
  EXPECT_THAT(work_.names(), ElementsAre("control.tar.gz"));
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("debug: check tbx file image "));
}

TEST_F(PackageType, RunsTheToolsAsTheyAreNamed) {
  build("TqPackageCategory: Application\n");
  std::vector<std::string> commands;
  Hook popen("popen", [&](const char* command, const char* mode) {
    commands.emplace_back(command);
    return ::popen(command, mode);
  });
  ask();
  EXPECT_THAT(commands, ElementsAre("ar xv app.tbx ./control.tar.gz 2>&1",
                                    "tar xvzf ./control.tar.gz ./tqcontrol 2>&1"));
}

TEST_F(PackageType, OfAMissingFileIsError2) {
  EXPECT_EQ(ask("missing.tbx"), ENOENT);
  EXPECT_EQ(ask(""), ENOENT);
  EXPECT_EQ(type_, kUnwritten);
}

// The tools print no system message about what an archive lacks: the next step
// shows it.
TEST_F(PackageType, OfAPackageWithoutItsControlFilesIsError2) {
  write_file("x", "x");
  work_.shell(
      "tar czf control.tar.gz ./x; ar rc app.tbx control.tar.gz; ar rc other.tbx x; "
      "rm x control.tar.gz");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(ask("other.tbx"), ENOENT);
  EXPECT_EQ(ask("app.tbx"), ENOENT);
  EXPECT_EQ(type_, kUnwritten);
  EXPECT_THAT(targets_.texts(), IsEmpty());
  // The tests that would say otherwise look at a result that is always 0.
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("debug: check tbx file image other.tbx",
                                                     "debug: check tbx file image app.tbx"));
}

TEST_F(PackageType, OfAPackageWithAnotherSpellingOfTheFileIsError2) {
  write_file("tqcontrol", "TqPackageCategory: Application\n");
  work_.shell(
      "tar czf control.tar.gz tqcontrol; ar rc app.tbx control.tar.gz; rm tqcontrol "
      "control.tar.gz");
  EXPECT_EQ(ask(), ENOENT);
}

TEST_F(PackageType, OfJunkIsError2) {
  write_file("app.tbx", "junk that is long enough to be looked at");
  EXPECT_EQ(ask(), ENOENT);
}

TEST_F(PackageType, ReturnsWhatAToolPrinted) {
  build("TqPackageCategory: Application\n");
  {
    const Tool ar("ar", "echo ar: Permission denied");
    EXPECT_EQ(ask(), EACCES);
  }
  const Tool tar("tar", "echo tar: No space left on device");
  EXPECT_EQ(ask(), ENOSPC);
  EXPECT_EQ(type_, kUnwritten);
  EXPECT_TRUE(work_.has("control.tar.gz"));  // nothing is cleaned up then
}

TEST_F(PackageType, WithACommandLineThatIsTooLongIsError36) {
  EXPECT_EQ(ask(std::string(300, 'x').c_str()), ENAMETOOLONG);
}

// Such members would hold the call for ever, or give lines without end.
TEST_F(PackageType, TakesAFileThatIsNotRegularForMissing) {
  const char* const members[] = {"mkfifo tqcontrol", "ln -s /dev/zero tqcontrol", "mkdir tqcontrol",
                                 "ln -s missing tqcontrol"};
  for (const char* member : members) {
    work_.shell(std::string(member) + "; tar czf control.tar.gz ./tqcontrol; rm -rf tqcontrol");
    EXPECT_EQ(ask(""), ENOENT) << member;
    EXPECT_EQ(type_, kUnwritten);
    work_.shell("rm -rf tqcontrol");
  }
}

TEST_F(PackageType, ReturnsTheErrorOfAFileThatCannotBeReadAgain) {
  build("TqPackageCategory: Application\n");
  int opened = 0;
  Hook fopen("fopen", [&](const char* path, const char* mode) -> FILE* {
    if (++opened != 2) return std::fopen(path, mode);
    errno = EMFILE;
    return nullptr;
  });
  EXPECT_EQ(ask(), EMFILE);
}

TEST_F(PackageType, WithoutMemoryIsError12) {
  build("TqDataTarget: a\nTqDataTarget: b\n");
  int n = 1;
  bool ended = false;
  for (; !ended; ++n) {
    const StringList targets;
    const FailAlloc fail(n);
    int32_t type = kUnwritten;
    const int result = tq_tbx_get_package_type("app.tbx", &type, targets.get());
    ended = !fail.happened();
    // A pair that finds no memory is left out of the control file's object, and so is the object.
    EXPECT_TRUE(result == 0 || result == ENOMEM) << n;
    EXPECT_EQ(targets.texts().size() == 2, result == 0) << n;
  }
  EXPECT_GT(n, 10);
}

TEST_F(PackageType, NeedsItsArguments) {
  EXPECT_EQ(tq_tbx_get_package_type(nullptr, &type_, targets_.get()), EINVAL);
  EXPECT_EQ(tq_tbx_get_package_type("app.tbx", nullptr, targets_.get()), EINVAL);
  EXPECT_EQ(tq_tbx_get_package_type("app.tbx", &type_, nullptr), EINVAL);
}

TEST_F(PackageType, LeavesNoDescriptorOpen) {
  build("TqDataTarget: a\n");
  const Descriptors before = open_descriptors();
  ask();
  ask("missing.tbx");
  EXPECT_THAT(opened_since(before), IsEmpty());
}

}  // namespace
}  // namespace tarvio_test
