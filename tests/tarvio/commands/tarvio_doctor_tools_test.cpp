// tarvio doctor: the tools.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "doctor.h"
#include "support/packages/tarvio_packages.h"
#include "support/work_directory.h"

namespace tarvio_test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

TEST_F(Doctor, ReportsTheReleasesOfTools) {
  const Json rows = look();
  EXPECT_EQ(row(rows, "opkg")["found"], TARVIO_SANDBOX_TOOLS "/opkg: opkg version 0.2.4");
  EXPECT_EQ(row(rows, "nanddump")["found"],
            TARVIO_SANDBOX_TOOLS "/nanddump: nanddump (mtd-utils) 2.1.5");
  EXPECT_THAT(std::string(row(rows, "tar")["found"]), HasSubstr("/tar: tar (GNU tar) 1."));
}

TEST_F(Doctor, MissesToolsThatAreNotOnPath) {
  const PathWithout path("nandwrite");
  EXPECT_EQ(row_of("nandwrite"), expected("nandwrite", "failed", "not on PATH",
                                          "install it, or add its directory to PATH"));
}

using Words = std::vector<std::string>;

struct OtherTool {
  const char* name;
  const char* tool;
  const char* body;
  const char* status;
  const char* found;  // after its path
  const char* remedy;
};

void PrintTo(const OtherTool& tool, std::ostream* out) { *out << tool.name; }

class DoctorOfTools : public Doctor, public testing::WithParamInterface<OtherTool> {};

TEST_P(DoctorOfTools, SaysWhatTheyCannotDo) {
  const OtherTool& other = GetParam();
  const Tool tool(other.tool, other.body);
  const Words options = std::string(other.name) == "ThatHangs" ? Words{"--timeout", "2"} : Words{};
  const Json row = Doctor::row(look(options), other.tool);
  EXPECT_EQ(row["status"], other.status);
  EXPECT_THAT(std::string(row["found"]), EndsWith("/" + std::string(other.tool) + other.found));
  EXPECT_EQ(row["remedy"], other.remedy == nullptr ? Json() : Json(other.remedy));
}

constexpr char kNotRun[] = "replace it with one that runs on this device";
constexpr char kNoSizes[] = " cannot report free space: no size where GNU df has it";
constexpr char kOtherDf[] =
    "install the df of coreutils: BusyBox's wraps rows of long device names";

INSTANTIATE_TEST_SUITE_P(
    Doctor, DoctorOfTools,
    testing::Values(
        OtherTool{"OfBusyBox", "gzip",
                  "echo \"gzip: unrecognized option '--version'\" >&2\n"
                  "echo 'BusyBox v1.35.0 (Debian 1:1.35.0-4+deb12u1+b1) multi-call binary.' >&2\n"
                  "exit 1",
                  "ok", ": BusyBox v1.35.0 (Debian 1:1.35.0-4+deb12u1+b1) multi-call binary.",
                  nullptr},
        OtherTool{"WithoutARelease", "gzip", "exec >/dev/null", "ok",
                  ", which does not report its release", nullptr},
        OtherTool{"WithoutTheOption", "gzip", "echo 'usage: gzip FILE' >&2; exit 255", "ok",
                  ", which does not report its release", nullptr},
        OtherTool{"WithoutUsage", "nandwrite",
                  "echo \"nandwrite: unrecognized option '--version'\" >&2; exit 1", "ok",
                  ", which does not report its release", nullptr},
        OtherTool{"TriedInAnotherWay", "dd", "[ $# != 1 ] || exit 1; exec /bin/dd \"$@\"", "ok",
                  ", which does not report its release", nullptr},
        OtherTool{"ThatLacksALibrary", "opkg",
                  "echo; echo 'opkg: cannot load shared library libopkg.so.1' >&2; exit 1",
                  "warning", " cannot be tried: opkg: cannot load shared library libopkg.so.1",
                  "run 'opkg --version', and fix what it reports"},
        OtherTool{"ThatIsNoApplet", "flash_erase",
                  "echo 'flash_erase: applet not found' >&2; exit 1", "warning",
                  " cannot be tried: flash_erase: applet not found",
                  "run 'flash_erase --version', and fix what it reports"},
        OtherTool{"ThatOnlyFails", "flash_eraseall", "exit 1", "warning",
                  " cannot be tried: exit status 1",
                  "run 'flash_eraseall --version', and fix what it reports"},
        OtherTool{"WithoutRows", "df", "exit 1", "failed", kNoSizes, kOtherDf},
        OtherTool{"ThatWrapsItsRows", "df",
                  "echo 'Filesystem 1K-blocks Used Available Use% Mounted on'\n"
                  "echo /dev/a_long_name; echo '   1024 512 512 50% /'",
                  "failed", kNoSizes, kOtherDf},
        OtherTool{"WithRows", "df",
                  "[ $# = 0 ] || exit 1\n"
                  "echo 'Filesystem 1K-blocks Used Available Use% Mounted on'\n"
                  "echo '/dev/root 1024 512 512 50% /'",
                  "ok", ", which does not report its release", nullptr},
        OtherTool{"ThatFailsAfterItsRows", "df",
                  "echo 'Filesystem 1K-blocks Used Available Use% Mounted on'\n"
                  "echo '/dev/root 1024 512 512 50% /'\n"
                  "echo 'df: /mnt: Permission denied' >&2; exit 1",
                  "warning", " reports free space, but fails: df: /mnt: Permission denied",
                  "run 'df', and fix what it reports"},
        OtherTool{"ThatHangs", "gzip", "exec sleep 1000", "failed",
                  " was stopped, because it did not end in time", kNotRun},
        OtherTool{"ThatCrashes", "gzip", "kill -SEGV $$", "failed", " was killed by signal 11",
                  kNotRun},
        OtherTool{"ThatCannotBeRun", "gzip", "echo 'gzip: Exec format error' >&2; exit 126",
                  "failed", " cannot be run: gzip: Exec format error", kNotRun},
        OtherTool{"ThatOnlyReads", "ar", "echo \"ar: invalid option -- 'r'\" >&2; exit 1", "failed",
                  " cannot make and read an archive: no result",
                  "install the ar of GNU binutils: BusyBox's does not find './control.tar.gz'"},
        OtherTool{"ThatFindsNoSpace", "dd", "echo 'dd: No space left on device' >&2; exit 1",
                  "failed", " cannot copy a file: No space left on device",
                  "install the dd of coreutils"},
        OtherTool{"WithoutJffs2", "mkfs.jffs2", "exit 1", "failed",
                  " cannot make a JFFS2 image: no result", "install the mkfs.jffs2 of mtd-utils"},
        OtherTool{"WithNewOptions", "nanddump", "echo \"nanddump: invalid option -- 'b'\" >&2",
                  "failed", " has no option -b, as older releases have",
                  "put a script of its name before it on PATH that turns -b into --bb=skipbad and "
                  "-o into --omitoob"}),
    [](const auto& tool) { return tool.param.name; });

}  // namespace
}  // namespace tarvio_test
