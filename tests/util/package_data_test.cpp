// The lines of a command, as a client walks them.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/hooks/stdout_capture.h"
#include "support/interruption.h"
#include "tarvio/archive.h"
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(offsetof(tq_pkg_data, count) == 0);
static_assert(offsetof(tq_pkg_data, lines) == sizeof(void*));
static_assert(sizeof(tq_pkg_data) == 2 * sizeof(void*));

struct Close {
  void operator()(tq_pkg_data* data) const { tq_pkg_data_close(data); }
};
using Data = std::unique_ptr<tq_pkg_data, Close>;

constexpr char kHeader[] = "a header of some length\n";

class PackageData : public testing::Test {
 protected:
  // A command that prints these bytes.
  Data open(const std::string& output) const {
    write_file(directory_ / "output", output);
    return Data(tq_pkg_data_open(("cat " + (directory_ / "output").string()).c_str()));
  }
  static std::vector<std::string> lines_of(const Data& data) {
    std::vector<std::string> lines;
    for (int32_t n = 0; n < tq_pkg_data_count(data.get()); ++n) {
      lines.emplace_back(tq_pkg_data_find(data.get(), static_cast<uint32_t>(n)));
    }
    return lines;
  }

  const TempDir directory_;
};

TEST_F(PackageData, HoldsTheLinesAfterTheHeader) {
  const Data data = open(std::string(kHeader) + "one\ntwo words\n\nlast\n");
  ASSERT_NE(data, nullptr);
  EXPECT_THAT(lines_of(data), ElementsAre("one", "two words", "", "last"));
  EXPECT_EQ(data->count, 4);
}

TEST_F(PackageData, HoldsNothingAfterAHeaderAlone) {
  for (const char* output : {"sixteen letters.\n", "sixteen letters."}) {
    const Data data = open(output);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(tq_pkg_data_count(data.get()), 0);
    EXPECT_EQ(data->lines, nullptr);
  }
}

TEST_F(PackageData, NeedsAHeaderOf16Characters) {
  EXPECT_EQ(open("fifteen letters\none\n"), nullptr);
  EXPECT_EQ(open("fifteen letters\r\none\n"), nullptr);  // the line end does not count
  EXPECT_EQ(open("\n"), nullptr);
  EXPECT_EQ(open(""), nullptr);
}

TEST_F(PackageData, RefusesAHeaderThatComplains) {
  EXPECT_EQ(open("Collected errors:\n * one\n"), nullptr);
  EXPECT_EQ(open("before Collected errors behind\n"), nullptr);
  EXPECT_NE(open("collected errors:\n"), nullptr);
}

TEST_F(PackageData, KeepsALineThatComplains) {
  EXPECT_THAT(lines_of(open(std::string(kHeader) + "Collected errors:\n")),
              ElementsAre("Collected errors:"));
}

TEST_F(PackageData, PrintsWhatItRefusesButForTheHeader) {
  const StdoutCapture output;
  open("Collected errors:\n * one\r\n * 100%s two\n\nlast");
  EXPECT_EQ(output.text(), " * one * 100%s twolast");
}

TEST_F(PackageData, PrintsNothingThatItTakes) {
  const StdoutCapture output;
  open(std::string(kHeader) + "one\n");
  EXPECT_EQ(output.text(), "");
}

TEST_F(PackageData, EndsLinesWithLineFeedOrCarriageReturnOrBoth) {
  EXPECT_THAT(lines_of(open("a header of some length\r\none\r\ntwo\rthree\n\rfour\r\r\nfive")),
              ElementsAre("one", "two", "three", "", "four", "", "five"));
}

TEST_F(PackageData, ComesWholeInSpiteOfSignals) {
  const Interruption interruption;
  const std::string interrupt = "; " + Interruption::commands();
  const Data data(tq_pkg_data_open(
      ("echo a header of some length" + interrupt + "echo one" + interrupt + "echo two").c_str()));
  EXPECT_THAT(lines_of(data), ElementsAre("one", "two"));
  EXPECT_EQ(Interruption::count, 2);
}

TEST_F(PackageData, HasNoLineAfterTheLastLineEnd) {
  for (const char* end : {"\n", "\r", "\r\n"}) {
    EXPECT_THAT(lines_of(open(kHeader + std::string("one") + end)), ElementsAre("one")) << end;
  }
}

TEST_F(PackageData, HoldsLinesOfAnyLength) {
  std::string output(3000, 'h');
  std::vector<std::string> lines;
  for (const size_t length : {1U, 1022U, 1023U, 1024U, 1025U, 2047U, 2048U, 100000U}) {
    lines.emplace_back(length, 'x');
    output += "\n" + lines.back();
  }
  EXPECT_EQ(lines_of(open(output)), lines);
}

TEST_F(PackageData, TakesEveryOtherByteAsItIs) {
  EXPECT_THAT(lines_of(open(std::string(kHeader) + "\xff\t\x01%n\n")), ElementsAre("\xff\t\x01%n"));
}

TEST_F(PackageData, IsReadFromTheShell) {
  const Data data(tq_pkg_data_open("echo a header of some length; echo $((1 + 1)) | cat"));
  EXPECT_THAT(lines_of(data), ElementsAre("2"));
}

TEST_F(PackageData, TakesNoAccountOfTheExitStatus) {
  EXPECT_THAT(lines_of(Data(tq_pkg_data_open("echo a header of some length; echo 1; exit 7"))),
              ElementsAre("1"));
}

TEST_F(PackageData, IsNoneWithoutACommandOrAShell) {
  EXPECT_EQ(tq_pkg_data_open(nullptr), nullptr);
  const Hook popen("popen", [](const char*, const char*) -> FILE* { return nullptr; });
  EXPECT_EQ(tq_pkg_data_open("echo a header of some length"), nullptr);
}

TEST_F(PackageData, LogsNothing) {
  const LogCapture log(TQ_LOG_DEBUG);
  open(kHeader);
  open("Collected errors:\n");
  EXPECT_THAT(log.records(), IsEmpty());
}

TEST_F(PackageData, GrowsByWhatIsWritten) {
  const Data data = open(kHeader);
  char line[] = "one";
  EXPECT_EQ(tq_pkg_data_write(data.get(), line), 0);
  line[0] = 'x';
  EXPECT_EQ(tq_pkg_data_write(data.get(), "two\n"), 0);
  EXPECT_THAT(lines_of(data), ElementsAre("one", "two\n"));
}

TEST_F(PackageData, StoresACopyThatFindsNoMemoryAsNull) {
  const Data data = open(kHeader);
  {
    const FailAlloc fail(2);  // after the array
    EXPECT_EQ(tq_pkg_data_write(data.get(), "one"), 0);
    EXPECT_TRUE(fail.happened());
  }
  EXPECT_EQ(tq_pkg_data_write(data.get(), "two"), 0);
  EXPECT_EQ(tq_pkg_data_count(data.get()), 2);
  EXPECT_EQ(tq_pkg_data_find(data.get(), 0), nullptr);
  EXPECT_STREQ(tq_pkg_data_find(data.get(), 1), "two");
}

TEST_F(PackageData, IsAsItWasWhenItCannotGrow) {
  const Data data = open(std::string(kHeader) + "one\n");
  const FailAlloc fail(1);
  EXPECT_EQ(tq_pkg_data_write(data.get(), "two"), ENOMEM);
  EXPECT_THAT(lines_of(data), ElementsAre("one"));
}

// The record, the lines' bytes, then the first line: the array, the copy.
TEST_F(PackageData, WithoutMemoryGivesNoneOrANullLine) {
  const StdoutCapture output;
  for (const int n : {1, 2, 3}) {
    const FailAlloc fail(n);
    EXPECT_EQ(open(std::string(kHeader) + "one\ntwo\n"), nullptr) << n;
    EXPECT_TRUE(fail.happened());
  }
  const FailAlloc copy(4);
  const Data data = open(std::string(kHeader) + "one\ntwo\n");
  ASSERT_NE(data, nullptr);
  EXPECT_TRUE(copy.happened());
  EXPECT_EQ(data->count, 2);
  EXPECT_EQ(data->lines[0], nullptr);
}

// The record, the header's bytes, the array and the copy of the first line, the longer line's
// bytes.
TEST_F(PackageData, WithoutMemoryForALineEndsBeforeIt) {
  const FailAlloc fail(5);
  const Data data = open(std::string(kHeader) + "one\n" + std::string(10000, 'x') + "\nlast\n");
  ASSERT_NE(data, nullptr);
  EXPECT_TRUE(fail.happened());
  EXPECT_THAT(lines_of(data), ElementsAre("one"));
}

TEST_F(PackageData, MayBeNull) {
  EXPECT_EQ(tq_pkg_data_count(nullptr), 0);
  EXPECT_EQ(tq_pkg_data_find(nullptr, 0), nullptr);
  EXPECT_EQ(tq_pkg_data_write(nullptr, "one"), EINVAL);
  EXPECT_EQ(tq_pkg_data_close(nullptr), 0);
}

TEST_F(PackageData, IsClosedWith0) {
  tq_pkg_data* data = open(std::string(kHeader) + "one\n").release();
  EXPECT_EQ(tq_pkg_data_close(data), 0);
}

TEST_F(PackageData, LeavesNoDescriptorOpen) {
  const StdoutCapture output;
  const Descriptors before = open_descriptors();
  open(std::string(kHeader) + "one\n");
  open("Collected errors:\none\n");
  EXPECT_THAT(opened_since(before), IsEmpty());
}

}  // namespace
}  // namespace tarvio_test
