#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include "support/children.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/packages/opkg_tool.h"
#include "support/packages/recorded_opkg.h"
#include "support/string_list.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/opkg.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;

constexpr char kUnit[] = "util/tq_opkg_util";
constexpr int kMalformed = 10301;
constexpr int kDependency = 10302;
constexpr int kNoSpace = 10303;
constexpr int kUnsupported = 10304;
constexpr int kOther = 10305;

class OpkgCommand : public testing::Test {
 protected:
  int judge(const std::string& output, const std::string& exit_status = "0") {
    opkg_.prints(output, exit_status);
    return tq_opkg_run_command("opkg install app.ipk", nullptr);
  }

  const OpkgTool opkg_;
  StringList output_;
};

struct Row {
  const char* text;
  int code;
};

std::ostream& operator<<(std::ostream& stream, const Row& row) { return stream << row.text; }

class MessageTable : public OpkgCommand, public testing::WithParamInterface<Row> {};

TEST_P(MessageTable, GivesTheCodeOfALineThatHoldsTheText) {
  const std::string text = GetParam().text;
  EXPECT_EQ(judge(text + "\n"), GetParam().code);
  EXPECT_EQ(judge("Installing app.\n * function: before " + text + " behind\n"), GetParam().code);
  EXPECT_EQ(judge("error: " + text), GetParam().code);
}

TEST_P(MessageTable, GivesNoCodeForALineThatIsShorterThanTheText) {
  const std::string text = GetParam().text;
  EXPECT_EQ(judge(text.substr(0, text.size() - 1) + "\n"), 0);
  EXPECT_EQ(judge(text.substr(1) + "\n"), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Opkg, MessageTable,
    testing::Values(Row{"Permission denied.", EACCES}, Row{"Malformed", kMalformed},
                    Row{"Failed to extract", kMalformed}, Row{"Cannot install package", kMalformed},
                    Row{"Cannot satisfy the following dependencies", kDependency},
                    Row{"The following packages conflict with", kDependency},
                    Row{"is depended upon by packages", kDependency},
                    Row{"kb available on filesystem", kNoSpace},
                    Row{"is unsupported.", kUnsupported}, Row{"No packages removed.", ENOPKG},
                    Row{"Failed to determine installed", EINVAL}, Row{"Collected errors", kOther}));

TEST_F(OpkgCommand, IsJudgedByTheLastLineThatMatches) {
  EXPECT_EQ(judge("Collected errors:\n * Cannot install package app.\n"), kMalformed);
  EXPECT_EQ(judge(" * Cannot install package app.\nCollected errors:\n"), kOther);
  EXPECT_EQ(judge("Malformed\nPermission denied.\nnothing of note\n"), EACCES);
}

TEST_F(OpkgCommand, IsJudgedByTheHighestRowWithinALine) {
  EXPECT_EQ(judge("Malformed, is unsupported.\n"), kUnsupported);
  EXPECT_EQ(judge("is unsupported. Malformed\n"), kUnsupported);
  EXPECT_EQ(judge("Collected errors: Permission denied.\n"), kOther);
}

TEST_F(OpkgCommand, ComparesCaseAndTheWholeText) {
  EXPECT_EQ(judge("malformed\nPermission denied\nCollected  errors\n"), 0);
}

TEST_F(OpkgCommand, DoesNotFindATextThatIsCutBetweenTwoPieces) {
  EXPECT_EQ(judge(std::string(250, 'x') + "Malformed\n"), 0);
  EXPECT_EQ(judge(std::string(246, 'x') + "Malformed\n"), kMalformed);
  EXPECT_EQ(judge(std::string(255, 'x') + "Malformed\n"), kMalformed);
}

TEST_F(OpkgCommand, ThatFailsWithoutAKnownMessageCountsAsSuccess) {
  EXPECT_EQ(judge("", "255"), 0);
  EXPECT_EQ(judge("Solver encountered 1 problem(s):\n", "1"), 0);
  EXPECT_EQ(judge("Malformed\n", "0"), kMalformed);
}

TEST_F(OpkgCommand, IsNotJudgedByStandardError) {
  const TempDir directory;
  {
    const Redirect err(STDERR_FILENO, directory / "err");
    EXPECT_EQ(tq_opkg_run_command("echo Malformed >&2", nullptr), 0);
  }
  EXPECT_EQ(read_file(directory / "err"), "Malformed\n");
}

TEST_F(OpkgCommand, LeavesItsLinesWithoutLineEndsInTheList) {
  opkg_.prints("one\ntwo\r\n\nCollected errors:\nlast");
  EXPECT_EQ(tq_opkg_run_command("opkg files app", output_.get()), kOther);
  EXPECT_THAT(output_.texts(), ElementsAre("one", "two", "", "Collected errors:", "last"));
}

TEST_F(OpkgCommand, NeitherJudgesNorCutsWhatWasInTheListBefore) {
  output_.add("Malformed\n");
  opkg_.prints("fine\n");
  EXPECT_EQ(tq_opkg_run_command("opkg files app", output_.get()), 0);
  EXPECT_THAT(output_.texts(), ElementsAre("Malformed\n", "fine"));
  opkg_.prints("");
  EXPECT_EQ(tq_opkg_run_command("opkg files app", output_.get()), 0);
  EXPECT_THAT(output_.texts(), ElementsAre("Malformed\n", "fine"));
}

TEST_F(OpkgCommand, IsGivenToTheShellAsItStands) {
  EXPECT_EQ(tq_opkg_run_command("opkg  'a  b' c", nullptr), 0);
  EXPECT_THAT(opkg_.arguments(), ElementsAre("a  b", "c"));
}

TEST_F(OpkgCommand, ThatSucceedsLogsItsCode) {
  const LogCapture log(TQ_LOG_DEBUG);
  judge("Installing app.\n");
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("debug: return error code is 0"));
}

TEST_F(OpkgCommand, ThatFailsLogsItsWholeOutputAtLevel1) {
  const LogCapture log(TQ_LOG_DEBUG);
  judge("Installing 100%s.\nMalformed\n\n");
  EXPECT_THAT(
      unit_messages(log, kUnit),
      ElementsAre("debug: return error code is 10301", "info: Installing 100%s.", "info: Malformed",
                  "info: ", "debug: tq_opkg_run_command: run command error - 10301 "));
}

TEST_F(OpkgCommand, NeedsACommand) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_opkg_run_command(nullptr, output_.get()), EINVAL);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_opkg_run_command: parameter is null ",
                          "debug: tq_opkg_run_command: run command error - 22 "));
}

TEST_F(OpkgCommand, WithoutAShellReturnsTheErrorAndMatchesNothing) {
  const LogCapture log(TQ_LOG_DEBUG);
  const Hook popen("popen", [](const char*, const char*) -> FILE* {
    errno = EMFILE;
    return nullptr;
  });
  EXPECT_EQ(tq_opkg_run_command("opkg update", nullptr), EMFILE);
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: tq_opkg_run_command: run command error - 24 "));
}

TEST_F(OpkgCommand, WithoutMemoryReturns12) {
  opkg_.prints("Malformed\n");
  int n = 1;
  for (bool happened = true; happened; ++n) {
    const LogCapture log(TQ_LOG_DEBUG);
    const FailAlloc fail(n);
    const int result = tq_opkg_run_command("opkg update", nullptr);
    happened = fail.happened();
    EXPECT_EQ(result, happened ? ENOMEM : kMalformed);
    EXPECT_TRUE(
        log.contains(TQ_LOG_DEBUG, kUnit,
                     "tq_opkg_run_command: run command error - " + std::to_string(result) + " "));
  }
  EXPECT_EQ(n, 4);  // a line, its node; the third run had all
}

class RecordedOutput : public OpkgCommand, public testing::WithParamInterface<const char*> {};

TEST_P(RecordedOutput, IsJudged) {
  for (const RecordedRun& run : recorded_runs(GetParam())) {
    opkg_.prints(run.output, std::to_string(run.exit_status));
    EXPECT_EQ(tq_opkg_run_command("opkg", nullptr), run.code) << run.name;
  }
}

INSTANTIATE_TEST_SUITE_P(Opkg, RecordedOutput, testing::ValuesIn(kRecordedVersions));

}  // namespace
}  // namespace tarvio_test
