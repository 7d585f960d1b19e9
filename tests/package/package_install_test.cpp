#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/operands.h"
#include "support/unit_messages.h"
#include "support/work_directory.h"
#include "tarvio/log.h"
#include "tarvio/package.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kUnit[] = "package/tq_tbx_package_binding";
constexpr char kForced[] =
    "--force-depends --force-maintainer --force-reinstall --force-overwrite --force-downgrade";

class Install : public testing::Test {
 protected:
  Install() { write_file(path_, "package"); }
  ~Install() override {
    ::unsetenv("OPKG_OPTIONS");
    ::unsetenv("OPKG_FORCE_OPTIONS");
  }

  int install(int force = 0) const { return tq_tbx_install(path_.c_str(), force); }

  const WorkDirectory work_;
  const std::string path_ = work_ / "app.tbx";
  const std::string opkg_path_ = work_ / "app.ipk";
};

TEST_F(Install, GivesOpkgACopyOfThePackageFileWithItsOwnExtension) {
  const Tool opkg("opkg", "cp \"$2\" seen");
  EXPECT_EQ(install(), 0);
  EXPECT_EQ(opkg.runs(), "install " + opkg_path_ + "\n");
  EXPECT_EQ(read_file("seen"), "package");
}

TEST_F(Install, LeavesThePackageFileAndNoCopy) {
  for (const char* body : {"exit 0", "echo Malformed; exit 255"}) {
    const Tool opkg("opkg", body);
    install();
    EXPECT_THAT(work_.names(), ElementsAre("app.tbx"));
    EXPECT_EQ(read_file(path_), "package");
  }
}

TEST_F(Install, ReturnsWhatOpkgPrinted) {
  for (const auto& [line, code] : {std::pair{"Malformed", 10301},
                                   {"Cannot satisfy the following dependencies", 10302},
                                   {"kb available on filesystem", 10303},
                                   {"is unsupported.", 10304},
                                   {"Collected errors", 10305},
                                   {"Permission denied.", 13},
                                   {"fine", 0}}) {
    const Tool opkg("opkg", std::string("echo '") + line + "'; exit 1");
    EXPECT_EQ(install(), code) << line;
  }
}

TEST_F(Install, PassesOptionsFromTheEnvironmentBeforeTheCommand) {
  const Tool opkg("opkg", "");
  ::setenv("OPKG_OPTIONS", "-V2 -f /etc/x.conf", 1);
  install();
  ::setenv("OPKG_FORCE_OPTIONS", "--force-space", 1);
  install();
  ::unsetenv("OPKG_OPTIONS");
  install();
  EXPECT_EQ(opkg.runs(), "-V2 -f /etc/x.conf install " + opkg_path_ +
                             "\n-V2 -f /etc/x.conf --force-space install " + opkg_path_ +
                             "\n--force-space install " + opkg_path_ + "\n");
}

TEST_F(Install, WithForceUsesTheFixedForceOptionsAlone) {
  const Tool opkg("opkg", "");
  install(1);
  ::setenv("OPKG_OPTIONS", "-V2", 1);
  ::setenv("OPKG_FORCE_OPTIONS", "--force-space", 1);
  install(2);
  ::unsetenv("OPKG_OPTIONS");
  install(-1);
  const std::string forced = kForced;
  EXPECT_EQ(opkg.runs(), forced + " install " + opkg_path_ + "\n-V2 " + forced + " install " +
                             opkg_path_ + "\n" + forced + " install " + opkg_path_ + "\n");
}

TEST_F(Install, LeavesOptionsToTheShellAsTheyAre) {
  const Tool opkg("opkg", "");
  ::setenv("OPKG_OPTIONS", "$(echo -V3)", 1);
  install();
  EXPECT_EQ(opkg.runs(), "-V3 install " + opkg_path_ + "\n");
}

TEST_F(Install, LogsTheOptionsThatItReads) {
  const Tool opkg("opkg", "");
  ::setenv("OPKG_OPTIONS", "-V2", 1);
  ::setenv("OPKG_FORCE_OPTIONS", "--force-space", 1);
  for (const int force : {0, 1}) {
    const LogCapture log(TQ_LOG_DEBUG);
    install(force);
    EXPECT_THAT(unit_messages(log, kUnit),
                ElementsAre("debug: tq_tbx_install: options=[-V2] ",
                            "debug: tq_tbx_install: force options=[--force-space] "));
  }
}

TEST_F(Install, LogsNothingOfItsOwnWithoutOptions) {
  const Tool opkg("opkg", "");
  const LogCapture log(TQ_LOG_DEBUG);
  install(1);
  EXPECT_THAT(unit_messages(log, kUnit), IsEmpty());
}

TEST_F(Install, GoesToTheOfflineRootWhereTheSystemDoesNotRunFromItsOwn) {
  const Tool opkg("opkg", "");
  write_kernel_command_line("root=/dev/mtdblock5\n");
  install(1);
  write_kernel_command_line("root=/dev/mtdblock4\n");
  EXPECT_EQ(opkg.runs(),
            std::string(kForced) + " install " + opkg_path_ + " --offline-root=/mnt/root\n");
}

TEST_F(Install, WithAnOfflineCommandLineThatIsTooLongRunsNothingAndLeavesNoCopy) {
  const Tool opkg("opkg", "");
  const std::string name(150, 'x');
  write_file(name + ".tbx", "package");
  write_kernel_command_line("root=/dev/mtdblock5\n");
  EXPECT_EQ(tq_tbx_install((name + ".tbx").c_str(), 1), ENAMETOOLONG);
  write_kernel_command_line("root=/dev/mtdblock4\n");
  EXPECT_EQ(opkg.runs(), "");
  EXPECT_FALSE(work_.has(name + ".ipk"));
}

TEST_F(Install, NeedsAPath) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_tbx_install(nullptr, 1), -1);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_install: opkg install [(null)] "));
}

TEST_F(Install, NeedsAFileThatCanBeRead) {
  const Tool opkg("opkg", "");
  const std::string missing = work_ / "missing.tbx";
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_tbx_install(missing.c_str(), 0), ENOENT);
  int asked = 0;
  Hook access("access", [&](const char*, int mode) {
    asked = mode;
    errno = EACCES;
    return -1;
  });
  EXPECT_EQ(install(), EACCES);
  EXPECT_EQ(asked, R_OK);
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("debug: Can not access " + missing + ".",
                                                     "debug: Can not access " + path_ + "."));
  EXPECT_EQ(opkg.runs(), "");
  EXPECT_THAT(work_.names(), ElementsAre("app.tbx"));
}

TEST_F(Install, RefusesAPathWithAShellMetacharacter) {
  const Tool opkg("opkg", "");
  for (const std::string& name : refused_operands()) {
    const std::string file = name + ".tbx";
    write_file(file, "package");
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_EQ(tq_tbx_install(file.c_str(), 1), EINVAL) << file;
    EXPECT_THAT(unit_messages(log, kUnit),
                ElementsAre(StartsWith("warning: tq_tbx_install: " + file)));
    fs::remove(file);
    EXPECT_THAT(work_.names(), ElementsAre("app.tbx"));
  }
  EXPECT_EQ(opkg.runs(), "");
}

TEST_F(Install, TakesEveryOtherPath) {
  for (const std::string& name : taken_operands()) {
    const Tool opkg("opkg", "");
    write_file(name + ".tbx", "package");
    EXPECT_EQ(tq_tbx_install((name + ".tbx").c_str(), 0), 0);
    EXPECT_EQ(opkg.runs(), "install " + name + ".ipk\n");
  }
}

TEST_F(Install, ReportsAMissingFileBeforeARefusedName) {
  EXPECT_EQ(tq_tbx_install("a b.tbx", 0), ENOENT);
}

TEST_F(Install, RefusesAPathWhoseCopyWouldBeItself) {
  const Tool opkg("opkg", "");
  for (const char* name : {"app.ipk", "app", "app.TBX", "app.tb"}) {
    write_file(name, "package");
    const LogCapture log(TQ_LOG_DEBUG);
    EXPECT_EQ(tq_tbx_install(name, 0), EINVAL);
    EXPECT_THAT(unit_messages(log, kUnit),
                ElementsAre(StartsWith("warning: tq_tbx_install: " + std::string(name) + ": ")));
    EXPECT_EQ(read_file(name), "package");
  }
  EXPECT_EQ(opkg.runs(), "");
}

TEST_F(Install, ReplacesEveryExtensionInThePath) {
  const Tool opkg("opkg", "");
  fs::create_directory("a.tbx.d");
  fs::create_directory("a.ipk.d");
  write_file("a.tbx.d/b.tbx.c.tbx", "package");
  EXPECT_EQ(tq_tbx_install("a.tbx.d/b.tbx.c.tbx", 0), 0);
  EXPECT_EQ(opkg.runs(), "install a.ipk.d/b.ipk.c.ipk\n");
  EXPECT_TRUE(fs::is_empty("a.ipk.d"));
}

TEST_F(Install, WithoutACopyReturnsItsError) {
  const Tool opkg("opkg", "");
  fs::create_directory("a.tbx.d");
  write_file("a.tbx.d/b.tbx", "package");
  fs::create_directory("app.ipk");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_tbx_install("a.tbx.d/b.tbx", 0), ENOENT);
  EXPECT_EQ(install(), EISDIR);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_install: ipk file create error ",
                          "debug: tq_tbx_install: ipk file create error "));
  EXPECT_EQ(opkg.runs(), "");
}

TEST_F(Install, LeavesNoCopyThatCouldNotBeWritten) {
  const Tool opkg("opkg", "");
  write_file(path_, std::string(100000, 'x'));
  Hook sendfile("sendfile", [](int, int, off64_t*, size_t) -> ssize_t {
    errno = EINVAL;
    return -1;
  });
  Hook fwrite("fwrite_unlocked", [](const void*, size_t, size_t, FILE*) -> size_t { return 0; });
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(install(), -1);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_tbx_install: ipk file create error "));
  EXPECT_EQ(opkg.runs(), "");
  EXPECT_THAT(work_.names(), ElementsAre("app.tbx"));
}

TEST_F(Install, ReplacesAndRemovesAFileOfTheNameOfTheCopy) {
  const Tool opkg("opkg", "cp \"$2\" seen");
  write_file(opkg_path_, "a longer file from before");
  EXPECT_EQ(install(), 0);
  EXPECT_EQ(read_file("seen"), "package");
  EXPECT_FALSE(work_.has("app.ipk"));
}

TEST_F(Install, WithoutMemoryReturns12AndLeavesNoCopy) {
  const Tool opkg("opkg", "");
  ::setenv("OPKG_OPTIONS", "-V2", 1);
  ::setenv("OPKG_FORCE_OPTIONS", "--force-space", 1);
  int n = 1;
  for (bool happened = true; happened; ++n) {
    const LogCapture log(TQ_LOG_DEBUG);
    const FailAlloc fail(n);
    const int result = install();
    happened = fail.happened();
    EXPECT_EQ(result, happened ? ENOMEM : 0) << n;
    EXPECT_THAT(work_.names(), ElementsAre("app.tbx"));
    // The path and the two options.
    const std::vector<std::string> messages = unit_messages(log, kUnit);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "debug: tq_tbx_install: malloc error "),
              n <= 3 ? 1 : 0);
  }
  EXPECT_GT(n, 4);
}

TEST_F(Install, WorksInAProcessThatIgnoresSigchld) {
  const Tool opkg("opkg", "echo Malformed");
  ::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(install(), 10301);
  ::signal(SIGCHLD, SIG_DFL);
}

TEST_F(Install, LeavesNoDescriptorOpen) {
  const Tool opkg("opkg", "echo Malformed");
  const Descriptors before = open_descriptors();
  install();
  EXPECT_THAT(opened_since(before), IsEmpty());
}

}  // namespace
}  // namespace tarvio_test
