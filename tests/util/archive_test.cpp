#include "tarvio/archive.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "support/children.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/shell_commands.h"
#include "support/unit_messages.h"
#include "support/work_directory.h"
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kUnit[] = "util/tq_archive";
const std::string kLong(300, 'x');

int archive_tgz(const char* archive, const std::vector<const char*>& files) {
  return tq_archive_tgz(archive, static_cast<int>(files.size()), files.data());
}

int archive_ar(const char* archive, const std::vector<const char*>& files) {
  return tq_archive_ar(archive, static_cast<int>(files.size()), files.data());
}

TEST(ArchiveCommand, OfDdLeavesOutWhatIs0) {
  EXPECT_THAT(commands_of([] {
                EXPECT_EQ(tq_dd("in", "out", 131072, 5), 0);
                EXPECT_EQ(tq_dd("in", "out", 131072, 0), 0);
                EXPECT_EQ(tq_dd("in", "out", 0, 5), 0);
                EXPECT_EQ(tq_dd("in", "out", 0, 0), 0);
                EXPECT_EQ(tq_dd("in", "out", -1, -2), 0);
              }),
              ElementsAre("dd if=in of=out bs=131072 count=5 2>&1",
                          "dd if=in of=out bs=131072 2>&1", "dd if=in of=out count=5 2>&1",
                          "dd if=in of=out 2>&1", "dd if=in of=out bs=-1 count=-2 2>&1"));
}

TEST(ArchiveCommand, OfAnExtractionNamesTheMember) {
  EXPECT_THAT(commands_of([] {
                EXPECT_EQ(tq_extract_from_tgz("a.tgz", "./m"), 0);
                EXPECT_EQ(tq_extract_from_tgz("a.tgz", nullptr), 0);
                EXPECT_EQ(tq_extract_from_ar("a.ar", "./m"), 0);
                EXPECT_EQ(tq_extract_from_ar("a.ar", nullptr), 0);
              }),
              ElementsAre("tar xvzf a.tgz ./m 2>&1", "tar xvzf a.tgz 2>&1", "ar xv a.ar ./m 2>&1",
                          "ar xv a.ar 2>&1"));
}

TEST(ArchiveCommand, OfAnArchiveNamesEachFile) {
  EXPECT_THAT(
      commands_of([] {
        EXPECT_EQ(archive_tgz("a.tgz", {"./a", "b"}), 0);
        EXPECT_EQ(archive_tgz("a.tgz", {"./a"}), 0);
        EXPECT_EQ(archive_ar("a.ar", {"./a", "b"}), 0);
      }),
      ElementsAre("tar cvzf a.tgz ./a b 2>&1", "tar cvzf a.tgz ./a 2>&1", "ar rv a.ar ./a b 2>&1"));
}

TEST(ArchiveCommand, OfAnArchiveOfNoFilesNamesTheArchiveAlone) {
  EXPECT_THAT(commands_of([] {
                for (const int count : {0, -1}) {
                  EXPECT_EQ(tq_archive_tgz("a.tgz", count, nullptr), 0);
                  EXPECT_EQ(tq_archive_ar("a.ar", count, nullptr), 0);
                }
              }),
              ElementsAre("tar cvzf a.tgz 2>&1", "ar rv a.ar 2>&1", "tar cvzf a.tgz 2>&1",
                          "ar rv a.ar 2>&1"));
}

TEST(ArchiveCommand, NeedsItsArguments) {
  const char* files[] = {"a", nullptr};
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_THAT(commands_of([&] {
                EXPECT_EQ(tq_extract_from_ar(nullptr, "m"), EINVAL);
                EXPECT_EQ(tq_extract_from_ar(nullptr, nullptr), EINVAL);
                EXPECT_EQ(tq_dd(nullptr, "out", 1, 1), EINVAL);
                EXPECT_EQ(tq_dd("in", nullptr, 1, 1), EINVAL);
                EXPECT_EQ(tq_archive_tgz(nullptr, 0, nullptr), EINVAL);
                EXPECT_EQ(tq_archive_tgz("a", 1, nullptr), EINVAL);
                EXPECT_EQ(tq_archive_tgz("a", 2, files), EINVAL);
                EXPECT_EQ(tq_archive_ar(nullptr, 0, nullptr), EINVAL);
              }),
              IsEmpty());
  EXPECT_THAT(log.records(), IsEmpty());
}

TEST(ArchiveCommand, OfATgzWithoutANameIsNotGuarded) {
  EXPECT_THAT(commands_of([] {
                EXPECT_EQ(tq_extract_from_tgz(nullptr, "m"), 0);
                EXPECT_EQ(tq_extract_from_tgz(nullptr, nullptr), 0);
              }),
              ElementsAre("tar xvzf (null) m 2>&1", "tar xvzf (null) 2>&1"));
}

TEST(ArchiveCommand, LogsWhatItExtracts) {
  const LogCapture log(TQ_LOG_DEBUG);
  commands_of([] {
    tq_extract_from_tgz("a.tgz", "./m");
    tq_extract_from_tgz("a.tgz", nullptr);
    tq_extract_from_ar("a.ar", "./m");
    tq_extract_from_ar("a.ar", nullptr);
  });
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: extract tgz a.tgz ./m\n", "debug: extract tgz a.tgz\n",
                          "debug: extract ar a.ar ./m\n", "debug: extract ar a.ar\n"));
}

TEST(ArchiveCommand, LogsTheResultOfDdAndNothingOfAnArchive) {
  const LogCapture log(TQ_LOG_DEBUG);
  commands_of([] {
    tq_dd("in", "out", 0, 0);
    archive_tgz("a.tgz", {"a"});
    archive_ar("a.ar", {"a"});
  });
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("debug: tq_dd result 0 "));
}

// A command line has a buffer of 256 bytes.
TEST(ArchiveCommand, MayHave255Characters) {
  const auto fits = [](const std::string& around, const std::function<int(const char*)>& call) {
    const std::string longest(255 - around.size(), 'x');
    EXPECT_EQ(commands_of([&] { EXPECT_EQ(call(longest.c_str()), 0); }).front().size(), 255U);
    const LogCapture log(TQ_LOG_WARNING);
    EXPECT_THAT(commands_of([&] { EXPECT_EQ(call((longest + "x").c_str()), ENAMETOOLONG); }),
                IsEmpty());
    EXPECT_THAT(unit_messages(log, kUnit), ElementsAre(StartsWith("warning: ")));
    EXPECT_THAT(commands_of([&] { EXPECT_EQ(call(kLong.c_str()), ENAMETOOLONG); }), IsEmpty());
  };
  fits("dd if= of=o bs=1 count=1 2>&1", [](const char* in) { return tq_dd(in, "o", 1, 1); });
  fits("dd if=i of= 2>&1", [](const char* out) { return tq_dd("i", out, 0, 0); });
  fits("tar xvzf a  2>&1", [](const char* name) { return tq_extract_from_tgz("a", name); });
  fits("tar xvzf  2>&1", [](const char* name) { return tq_extract_from_tgz(name, nullptr); });
  fits("ar xv a  2>&1", [](const char* name) { return tq_extract_from_ar("a", name); });
  fits("ar xv  2>&1", [](const char* name) { return tq_extract_from_ar(name, nullptr); });
  fits("tar cvzf a b  2>&1", [](const char* name) { return archive_tgz("a", {"b", name}); });
  fits("ar rv  b 2>&1", [](const char* name) { return archive_ar(name, {"b"}); });
}

TEST(ArchiveCommand, IsRefusedWhenItsFilesDoNotFit) {
  const std::vector<const char*> many(1000, "file");
  EXPECT_THAT(commands_of([&] { EXPECT_EQ(archive_ar("a", many), ENAMETOOLONG); }), IsEmpty());
}

TEST(ArchiveCommand, WithoutAShellReturnsItsError) {
  const Hook popen("popen", [](const char*, const char*) -> FILE* {
    errno = EMFILE;
    return nullptr;
  });
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_dd("in", "out", 0, 0), EMFILE);
  EXPECT_EQ(tq_extract_from_ar("a", nullptr), EMFILE);
  EXPECT_EQ(archive_tgz("a", {"b"}), EMFILE);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_dd result 24 ", "debug: extract ar a\n"));
}

class Archive : public testing::Test {
 protected:
  const WorkDirectory work_;
};

TEST_F(Archive, OfFilesIsExtractedAgain) {
  write_file("a", "one");
  write_file("b", "two");
  EXPECT_EQ(archive_tgz("x.tgz", {"./a", "./b"}), 0);
  EXPECT_EQ(archive_ar("x.ar", {"./a", "./b"}), 0);
  for (const char* name : {"x.tgz", "x.ar"}) {
    work_.shell("rm a b");
    EXPECT_EQ(
        name[2] == 't' ? tq_extract_from_tgz(name, nullptr) : tq_extract_from_ar(name, nullptr), 0);
    EXPECT_EQ(read_file("a") + read_file("b"), "onetwo");
  }
}

TEST_F(Archive, GivesTheOneMemberThatIsAskedFor) {
  write_file("a", "one");
  write_file("b", "two");
  work_.shell("tar czf x.tgz ./a ./b; ar rc x.ar a b; rm a b");
  EXPECT_EQ(tq_extract_from_tgz("x.tgz", "./b"), 0);
  EXPECT_THAT(work_.names(), ElementsAre("b", "x.ar", "x.tgz"));
  work_.shell("rm b");
  for (const char* spelling : {"./b", "b"}) {
    EXPECT_EQ(tq_extract_from_ar("x.ar", spelling), 0);
    EXPECT_THAT(work_.names(), ElementsAre("b", "x.ar", "x.tgz"));
    work_.shell("rm b");
  }
}

// The tools' exit statuses do not count, and neither complaint holds a system message.
TEST_F(Archive, WithoutTheMemberIsNoError) {
  write_file("a", "one");
  work_.shell("tar czf x.tgz ./a; ar rc x.ar a; ar rcP y.ar ./a; rm a");
  EXPECT_EQ(tq_extract_from_tgz("x.tgz", "./b"), 0);
  EXPECT_EQ(tq_extract_from_tgz("x.tgz", "a"), 0);  // spelled "./a" there
  EXPECT_EQ(tq_extract_from_ar("x.ar", "./b"), 0);
  EXPECT_EQ(tq_extract_from_ar("y.ar", "./a"), 0);  // GNU's long name "./a" is not found
  EXPECT_THAT(work_.names(), ElementsAre("x.ar", "x.tgz", "y.ar"));
}

TEST_F(Archive, ThatIsMissingIsError2) {
  EXPECT_EQ(tq_extract_from_tgz("missing", nullptr), ENOENT);
  EXPECT_EQ(tq_extract_from_ar("missing", "./a"), ENOENT);
  EXPECT_EQ(archive_tgz("x.tgz", {"missing"}), ENOENT);
  EXPECT_EQ(archive_ar("x.ar", {"missing"}), ENOENT);
  EXPECT_EQ(tq_dd("missing", "copy", 0, 0), ENOENT);
}

TEST_F(Archive, ThatIsJunkIsNoError) {
  write_file("x", "junk that is long enough to be looked at by every tool");
  EXPECT_EQ(tq_extract_from_ar("x", nullptr), 0);
  EXPECT_EQ(tq_extract_from_tgz("x", nullptr), 0);
  EXPECT_THAT(work_.names(), ElementsAre("x"));
}

TEST_F(Archive, IsJudgedByWhatTheToolPrints) {
  const Tool tar("tar", "echo x/No space left on device/y; exit 0");
  EXPECT_EQ(tq_extract_from_tgz("x.tgz", nullptr), ENOSPC);
  const Tool quiet("tar", "exit 2");
  EXPECT_EQ(tq_extract_from_tgz("x.tgz", nullptr), 0);
}

TEST_F(Archive, SeesWhatTheToolPrintsAsAnError) {
  const TempDir elsewhere;
  {
    const Redirect errors(STDERR_FILENO, elsewhere / "err");
    const Tool ar("ar", "echo Permission denied >&2");
    EXPECT_EQ(tq_extract_from_ar("x.ar", nullptr), EACCES);
  }
  EXPECT_EQ(read_file(elsewhere / "err"), "");
}

TEST_F(Archive, IsCopiedByDd) {
  write_file("in", std::string(3000, 'a') + std::string(3000, 'b'));
  EXPECT_EQ(tq_dd("in", "whole", 0, 0), 0);
  EXPECT_EQ(read_file("whole"), read_file("in"));
  EXPECT_EQ(tq_dd("in", "part", 1000, 4), 0);
  EXPECT_EQ(read_file("part"), std::string(3000, 'a') + std::string(1000, 'b'));
  EXPECT_EQ(tq_dd("in", "sectors", 0, 2), 0);
  EXPECT_EQ(read_file("sectors"), std::string(1024, 'a'));
}

TEST_F(Archive, ThatDdCannotWriteHasItsError) {
  write_file("in", "text");
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_dd("in", "/dev/full", 0, 0), ENOSPC);
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("debug: tq_dd result 28 "));
}

TEST_F(Archive, WithoutMemoryIsError12) {
  write_file("in", "text");
  int n = 1;
  for (bool happened = true; happened; ++n) {
    const FailAlloc fail(n);
    const int result = tq_dd("in", "out", 0, 0);
    happened = fail.happened();
    EXPECT_EQ(result, happened ? ENOMEM : 0);
  }
  EXPECT_EQ(n, 9);  // the list, three lines and their nodes; the eighth run had all
}

}  // namespace
}  // namespace tarvio_test
