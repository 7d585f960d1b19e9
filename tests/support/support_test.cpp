#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/hooks/stdout_capture.h"
#include "tarvio/tarvio.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Hook, ReplacesAFunctionForTheLibrary) {
  int calls = 0;
  Hook hook("fork", [&]() -> pid_t {
    ++calls;
    errno = EAGAIN;
    return -1;
  });
  int pid = 0;
  tq_create_process("true", 0, &pid, nullptr, nullptr, nullptr);
  EXPECT_EQ(calls, 1);
}

TEST(Hook, LeavesTheTestItselfAlone) {
  Hook hook("malloc", [](size_t) -> void* { return nullptr; });
  void* volatile memory = std::malloc(1);
  EXPECT_NE(memory, nullptr);
  std::free(memory);
}

TEST(Hook, EndsWithItsScope) {
  {
    Hook hook("malloc", [](size_t) -> void* { return nullptr; });
    EXPECT_EQ(tq_list_create(), nullptr);
  }
  tq_list_t* list = tq_list_create();
  EXPECT_NE(list, nullptr);
  tq_list_free(list, 0);
}

TEST(Hook, GivesTheFunctionThatItReplaces) {
  const Hook hook(
      "fork", +[]() -> pid_t { return -1; });
  EXPECT_EQ(hook.original(), &::fork);
}

TEST(Hook, FailsTheTestWhenTheLibraryDoesNotImportTheName) {
  EXPECT_NONFATAL_FAILURE(Hook("no_such_function", [] {}), "does not import no_such_function");
}

TEST(Hook, KnowsWhatTheLibraryImports) {
  EXPECT_TRUE(library_imports("malloc"));
  EXPECT_FALSE(library_imports("sqrt"));
}

TEST(Hook, FindsTheNameOfLargeFiles) { EXPECT_TRUE(library_imports("fopen")); }

TEST(LogCapture, KeepsPriorityTextUnitAndLine) {
  const LogCapture log;
  tq_log_func(TQ_LOG_ERROR, "area/unit", 42, "cannot %s", "do it");
  const std::vector<LogRecord> records = log.records();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].priority, LOG_ERR);
  EXPECT_EQ(records[0].text, "cannot do it -  area/unit 42\n");
  EXPECT_EQ(records[0].message, "cannot do it");
  EXPECT_EQ(records[0].unit, "area/unit");
  EXPECT_EQ(records[0].line, 42);
}

TEST(LogCapture, DistinguishesMessagesByLevel) {
  const LogCapture log(TQ_LOG_INFO);
  tq_log_func(TQ_LOG_INFO, "u", 1, "one");
  tq_log_func(TQ_LOG_WARNING, "u", 1, "two");
  tq_log_func(TQ_LOG_ERROR, "u", 1, "three");
  EXPECT_THAT(log.messages(TQ_LOG_INFO), ElementsAre("one"));
  EXPECT_THAT(log.messages(TQ_LOG_WARNING), ElementsAre("two"));
  EXPECT_THAT(log.messages(TQ_LOG_ERROR), ElementsAre("three"));
}

TEST(LogCapture, KeepsASeparatorThatIsPartOfTheMessage) {
  const LogCapture log;
  tq_log_func(TQ_LOG_ERROR, "u", 1, "a -  b 7");
  EXPECT_THAT(log.messages(TQ_LOG_ERROR), ElementsAre("a -  b 7"));
}

TEST(LogCapture, FindsAMessageByLevelUnitAndText) {
  const LogCapture log;
  tq_log_func(TQ_LOG_WARNING, "u", 1, "text");
  EXPECT_TRUE(log.contains(TQ_LOG_WARNING, "u", "text"));
  EXPECT_FALSE(log.contains(TQ_LOG_ERROR, "u", "text"));
  EXPECT_FALSE(log.contains(TQ_LOG_WARNING, "v", "text"));
  EXPECT_FALSE(log.contains(TQ_LOG_WARNING, "u", "tex"));
}

TEST(LogCapture, ShowsWhatWasLoggedWhenAMessageIsMissing) {
  const LogCapture log;
  tq_log_func(TQ_LOG_ERROR, "u", 1, "another");
  EXPECT_THAT(log.contains(TQ_LOG_ERROR, "u", "text").message(),
              testing::HasSubstr("another -  u 1"));
}

TEST(LogCapture, ForgetsOnRequest) {
  LogCapture log;
  tq_log_func(TQ_LOG_ERROR, "u", 1, "text");
  log.clear();
  EXPECT_THAT(log.records(), IsEmpty());
}

TEST(LogCapture, GivesTheThresholdOfLoadTimeBack) {
  { const LogCapture log(TQ_LOG_ERROR); }
  const LogCapture log;
  tq_log_func(TQ_LOG_INFO, "u", 1, "dropped");
  tq_log_func(TQ_LOG_WARNING, "u", 1, "kept");
  EXPECT_EQ(log.records().size(), 1U);
}

TEST(LogCapture, TakesMessagesFromManyThreads) {
  const LogCapture log;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([] {
      for (int n = 0; n < 100; ++n) tq_log_func(TQ_LOG_ERROR, "u", 1, "text");
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(log.records().size(), 400U);
}

TEST(FailAlloc, LetsTheChosenAllocationFail) {
  const FailAlloc fail(1);
  EXPECT_EQ(tq_list_create(), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_TRUE(fail.happened());
  tq_list_t* list = tq_list_create();
  EXPECT_NE(list, nullptr);
  tq_list_free(list, 0);
}

TEST(FailAlloc, LetsAllFromTheChosenOneFail) {
  const FailAlloc fail(1, FailAlloc::kFromThenOn);
  EXPECT_EQ(tq_list_create(), nullptr);
  EXPECT_EQ(tq_list_create(), nullptr);
}

TEST(FailAlloc, OnlyCountsWithNoneChosen) {
  const FailAlloc fail(0);
  tq_list_t* list = tq_list_create();
  const int before = fail.count();
  EXPECT_EQ(tq_list_add(list, nullptr), 0);
  EXPECT_EQ(fail.count(), before + 1);
  EXPECT_FALSE(fail.happened());
  tq_list_free(list, 0);
}

TEST(FailAlloc, ReachesEveryAllocationOfACall) {
  int n = 1;
  for (bool happened = true; happened; ++n) {
    const FailAlloc fail(n);
    char* message = tq_get_err_mes(2);
    happened = fail.happened();
    EXPECT_EQ(message == nullptr, happened);
    std::free(message);
  }
  EXPECT_GT(n, 2);
}

TEST(StdoutCapture, KeepsWhatTheLibraryPrints) {
  const StdoutCapture output;
  const LogCapture log(TQ_LOG_DEBUG);
  tq_log_func(TQ_LOG_DEBUG, "u", 1, "text");
  EXPECT_EQ(output.text(), "text -  u 1\n");
}

TEST(StdoutCapture, KeepsWhatAChildPrints) {
  const StdoutCapture output;
  ASSERT_EQ(std::system("echo text"), 0);
  EXPECT_EQ(output.text(), "text\n");
}

TEST(TempDir, GoesWithAllThatIsInIt) {
  std::filesystem::path path;
  {
    const TempDir directory;
    path = directory.path();
    std::filesystem::create_directory(directory / "below");
    write_file(directory / "below/file", "text");
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(Files, KeepEveryByte) {
  const TempDir directory;
  const std::string bytes("a\0\r\n\xff", 5);
  write_file(directory / "file", bytes);
  EXPECT_EQ(read_file(directory / "file"), bytes);
}

TEST(Files, FailTheTestWhenTheyCannotBeRead) {
  EXPECT_NONFATAL_FAILURE(read_file("/no/such/file"), "cannot read");
}

TEST(Files, CanBePrograms) {
  const TempDir directory;
  write_program(directory / "tool", "#!/bin/sh\nexit 3\n");
  EXPECT_EQ(WEXITSTATUS(std::system((directory / "tool").c_str())), 3);
}

}  // namespace
}  // namespace tarvio_test
