// What the client makes of opkg's words and of what is installed.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "packages/opkg_run.h"
#include "packages/verdict.h"
#include "process/failure.h"
#include "support/files.h"

namespace client {
namespace {

Installed at_version(const char* version, long written = 1) {
  Installed installed;
  installed.version = version;
  installed.is_listed = true;
  installed.control.st_ctim.tv_sec = written;
  return installed;
}

const Installed kGone;
const OpkgRun kGood = {.code = 0, .message = "Success"};
const OpkgRun kBad = {.code = 10302, .message = "Bad dependency."};

// What a judgement comes to: a fact, "?" before one that opkg disputes, or "!" and a failure.
template <typename Judge>
std::string outcome_of(Judge judge) {
  try {
    const Verdict verdict = judge();
    return (verdict.is_disputed ? "? " : "") + verdict.fact;
  } catch (const Failure& failure) {
    return "! " + std::string(failure.what()) + " " + std::to_string(failure.code());
  }
}

std::string installing(const Installed& before, const Installed& after, const OpkgRun& run) {
  return outcome_of([&] { return judge_installation({"clock", "2"}, before, after, run); });
}

std::string removing(const Installed& before, const Installed& after, const OpkgRun& run) {
  return outcome_of([&] { return judge_removal("clock", before, after, run); });
}

TEST(ClientVerdict, OnAnInstallationIsWhatIsInstalled) {
  EXPECT_EQ(installing(kGone, at_version("2"), kGood), "installed clock 2");
  EXPECT_EQ(installing(at_version("1"), at_version("2"), kGood), "installed clock 2");
  EXPECT_EQ(installing(at_version("2", 1), at_version("2", 2), kGood), "installed clock 2");
  EXPECT_EQ(installing(kGone, at_version("2"), kBad),
            "? installed clock 2, although opkg reported: Bad dependency. (10302)");
}

TEST(ClientVerdict, OnAFailedInstallationNamesBothFacts) {
  EXPECT_EQ(installing(kGone, kGone, kGood),
            "! opkg reported no recognised error, but clock is not installed 5");
  EXPECT_EQ(installing(at_version("1"), at_version("1"), kGood),
            "! opkg reported no recognised error, but clock 1 is installed as before 5");
  EXPECT_EQ(installing(kGone, kGone, kBad), "! Bad dependency, and clock is not installed 10302");
  EXPECT_EQ(installing(kGone, at_version("3"), kBad),
            "! Bad dependency, and clock 3 is installed 10302");
  EXPECT_EQ(installing(at_version("1"), at_version("1"), kBad),
            "! Bad dependency, and clock 1 is installed as before 10302");
  EXPECT_EQ(installing(at_version("2"), at_version("2"), kBad),
            "! Bad dependency, and clock 2 is installed as before 10302");
}

TEST(ClientVerdict, OnARunThatFailedIsAFailureWhateverIsInstalled) {
  const OpkgRun failed = {.code = 5, .has_failed = true, .message = "opkg failed with status 3"};
  EXPECT_EQ(installing(kGone, at_version("2"), failed),
            "! opkg failed with status 3, and clock 2 is installed 5");
  EXPECT_EQ(installing(at_version("1"), at_version("2"), failed),
            "! opkg failed with status 3, and clock 2 is installed 5");
  EXPECT_EQ(removing(at_version("1"), kGone, failed),
            "! opkg failed with status 3, and clock is not installed 5");
}

TEST(ClientVerdict, OnTheSameVersionNeedsANewInstallation) {
  EXPECT_EQ(installing(at_version("2", 1), at_version("2", 2), kGood), "installed clock 2");
  EXPECT_EQ(installing(at_version("2"), at_version("2"), kGood),
            "! opkg reported no recognised error, but clock 2 is installed as before 5");
  EXPECT_EQ(installing(at_version("2"), at_version("2"), kBad),
            "! Bad dependency, and clock 2 is installed as before 10302");
}

TEST(ClientVerdict, OnAnInstallationNamesTheKindOfPackage) {
  Installed application = at_version("2");
  application.is_application = true;
  EXPECT_EQ(installing(kGone, application, kGood), "installed clock 2");
  Installed stranger = at_version("2");
  stranger.is_listed = false;
  EXPECT_EQ(installing(kGone, stranger, kGood),
            "installed clock 2, but it has no tqcontrol file, so tarvio does not manage it");
}

TEST(ClientVerdict, OnARemovalIsWhatIsInstalled) {
  EXPECT_EQ(removing(at_version("1"), kGone, kGood), "removed clock");
  EXPECT_EQ(removing(at_version("1"), kGone, kBad),
            "? removed clock, although opkg reported: Bad dependency. (10302)");
  EXPECT_EQ(removing(at_version("1"), at_version("1"), kGood),
            "! opkg reported no recognised error, but clock 1 is still installed 5");
  EXPECT_EQ(removing(at_version("1"), at_version("1"), kBad),
            "! Bad dependency, and clock 1 is still installed 10302");
  EXPECT_EQ(removing(at_version("1"), at_version("1"), {.code = ENOPKG, .message = "not there"}),
            "! opkg removed nothing, and clock 1 is still installed 65");
  EXPECT_EQ(removing(kGone, kGone, kGood), "! it is not installed 65");
  EXPECT_EQ(removing(kGone, kGone, {.code = ENOPKG, .message = "x"}), "! it is not installed 65");
  EXPECT_EQ(removing(kGone, kGone, kBad), "! Bad dependency, and clock is not installed 10302");
}

std::string listing(const Installed& now, const OpkgRun& run) {
  return outcome_of([&] {
    judge_files(now, run);
    return Verdict{"listed"};
  });
}

TEST(ClientVerdict, OnFilesIsThatTheyWereListed) {
  const OpkgRun heading = {.code = 0, .message = "Success", .lines = {"Package clock"}};
  EXPECT_EQ(listing(at_version("1"), heading), "listed");
  EXPECT_EQ(listing(kGone, heading), "listed");
  EXPECT_EQ(listing(kGone, kGood), "! it is not installed 65");
  EXPECT_EQ(listing(at_version("1"), kGood),
            "! opkg reported no recognised error, but it listed nothing 5");
  EXPECT_EQ(listing(kGone, kBad), "! Bad dependency, and it is not installed 10302");
  EXPECT_EQ(listing(at_version("1"), kBad), "! Bad dependency. 10302");
}

TEST(ClientVerdict, OnARunThatTookTooLongKeepsItsExitStatus) {
  const OpkgRun late = {.code = ETIMEDOUT, .message = "late", .status = kTimeout};
  try {
    (void)judge_removal("clock", at_version("1"), at_version("1"), late);
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), kTimeout);
  }
}

class ClientOpkgLine : public testing::Test {
 protected:
  ClientOpkgLine() {
    ::unsetenv("OPKG_OPTIONS");
    ::unsetenv("OPKG_FORCE_OPTIONS");
    tarvio_test::write_kernel_command_line("root=/dev/mtdblock4 quiet\n");
  }
};

TEST_F(ClientOpkgLine, QuotesItsOperand) {
  EXPECT_EQ(opkg_line({.word = "install", .operand = "/tmp/a b/$(x).ipk"}),
            "opkg install '/tmp/a b/$(x).ipk' 2>&1");
  EXPECT_EQ(opkg_line({.word = "remove", .operand = "it's"}), "opkg remove 'it'\\''s' 2>&1");
}

TEST_F(ClientOpkgLine, TakesOptionsFromTheEnvironment) {
  ::setenv("OPKG_OPTIONS", "-V 2", 1);
  ::setenv("OPKG_FORCE_OPTIONS", "--force-space", 1);
  EXPECT_EQ(opkg_line({.word = "remove", .operand = "x"}),
            "opkg -V 2 --force-space remove 'x' 2>&1");
  EXPECT_EQ(opkg_line({.word = "remove", .operand = "x", .force_options = "--force-depends"}),
            "opkg -V 2 --force-depends remove 'x' 2>&1");
}

TEST_F(ClientOpkgLine, NamesTheOfflineRoot) {
  tarvio_test::write_kernel_command_line("root=/dev/mtdblock5\n");
  EXPECT_EQ(opkg_line({.word = "files", .operand = "x", .is_listing = true}),
            "opkg files 'x' --offline-root=/mnt/root");
}

}  // namespace
}  // namespace client
