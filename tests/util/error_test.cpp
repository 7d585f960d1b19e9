#include "tarvio/error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/string_list.h"
#include "support/unit_messages.h"
#include "tarvio/client.h"
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "util/tq_error_util";

std::string message_of(int32_t code) {
  const std::unique_ptr<char, decltype(&std::free)> message(tq_get_err_mes(code), &std::free);
  return message == nullptr ? "no message" : message.get();
}

constexpr tq_err_code kOwnCodes[] = {
    {10000, "Tarvio boot failed."},
    {10001, "_Tarvio status manager init failed."},
    {10002, "_Tarvio status manager find all status failed."},
    {10003, "_Tarvio status manager find by status failed."},
    {10004, "_Tarvio status manager find by type failed."},
    {10005, "_Tarvio status manager add status failed."},
    {10006, "_Tarvio status manager add status id failed."},
    {10007, "_Tarvio status manager remove status failed."},
    {10008, "_Tarvio status manager change status failed."},
    {10101, "_Tarvio status utility memory allocation failed."},
    {10201, "_Tarvio log manager init failed."},
    {10202, "_Tarvio log manager change status failed."},
    {10301, "Tarvio malformed package error."},
    {10302, "Tarvio package dependency error."},
    {10303, "Tarvio package dependency error."},
    {10305, "Tarvio package other error."},
};

TEST(ErrorTables, HoldTheOwnCodesInOrder) {
  ASSERT_EQ(std::size(tq_err_code_map), std::size(kOwnCodes));
  for (size_t row = 0; row < std::size(kOwnCodes); ++row) {
    EXPECT_EQ(tq_err_code_map[row].code, kOwnCodes[row].code);
    EXPECT_STREQ(tq_err_code_map[row].message, kOwnCodes[row].message);
  }
}

TEST(ErrorTables, HoldWhatOpkgPrintsBesideItsCodes) {
  EXPECT_THAT(std::vector<std::string>(std::begin(opkgmes), std::end(opkgmes)),
              ElementsAre("Permission denied.", "Malformed", "Failed to extract",
                          "Cannot install package", "Cannot satisfy the following dependencies",
                          "The following packages conflict with", "is depended upon by packages",
                          "kb available on filesystem", "is unsupported.", "No packages removed.",
                          "Failed to determine installed", "Collected errors"));
  EXPECT_THAT(opkgerr, ElementsAre(13, 10301, 10301, 10301, 10302, 10302, 10302, 10303, 10304, 65,
                                   22, 10305));
}

TEST(ErrorMessage, OfAnOwnCodeIsItsRow) {
  for (const tq_err_code& row : kOwnCodes) EXPECT_EQ(message_of(row.code), row.message);
}

TEST(ErrorMessage, OfAnOwnCodeWithoutARowIsEmpty) {
  for (const int32_t code : {10304, 10009, 10100, 10102, 10300, 10306, 99999, INT_MAX}) {
    EXPECT_EQ(message_of(code), "") << code;
  }
}

TEST(ErrorMessage, OfASystemCodeIsTheSystems) {
  for (int32_t code = 0; code <= 140; ++code) EXPECT_EQ(message_of(code), strerror(code));
  EXPECT_EQ(message_of(2), "No such file or directory");
  EXPECT_EQ(message_of(9999), "Unknown error 9999");
}

TEST(ErrorMessage, OfANegativeCodeIsTheSystems) {
  EXPECT_EQ(message_of(-1), "Unknown error -1");
  EXPECT_EQ(message_of(INT_MIN), "Unknown error -2147483648");
}

TEST(ErrorMessage, IsNullWithoutMemory) {
  for (const int32_t code : {2, 10000, 10304}) {
    const FailAlloc fail(1);
    EXPECT_EQ(tq_get_err_mes(code), nullptr);
    EXPECT_TRUE(fail.happened());
  }
}

TEST(ErrorMessage, IsTheSameForAClient) {
  for (const int32_t code : {0, 2, 9999, 10101, 10304, -1}) {
    const std::unique_ptr<char, decltype(&std::free)> message(tq_lib_get_err_mes(code), &std::free);
    EXPECT_EQ(std::string(message.get()), message_of(code));
  }
}

TEST(ErrorMessage, IsNullForAClientWithoutMemory) {
  const FailAlloc fail(1);
  EXPECT_EQ(tq_lib_get_err_mes(2), nullptr);
}

TEST(StrError, ReturnsTheBuffer) {
  char buffer[256] = "";
  for (const int32_t code : {2, 9999, 10000, 10304}) {
    EXPECT_EQ(tq_strerror_r(code, buffer, sizeof buffer), buffer);
  }
}

TEST(StrError, LeavesTheWholeBufferOfAnUnknownOwnCodeAlone) {
  for (const int32_t code : {10304, 10009, 12345, INT_MAX}) {
    std::string buffer(300, 'x');
    tq_strerror_r(code, buffer.data(), buffer.size());
    EXPECT_EQ(buffer, std::string(300, 'x')) << code;
  }
}

TEST(StrError, CutsATextToTheBuffer) {
  for (const auto& [code, text] : {tq_err_code{10000, "Tarvio "}, tq_err_code{2, "No such"}}) {
    std::string buffer(16, 'x');
    tq_strerror_r(code, buffer.data(), 8);
    EXPECT_EQ(buffer, text + std::string(1, '\0') + std::string(8, 'x'));
  }
}

TEST(StrError, WritesNothingWithoutRoom) {
  for (const int32_t code : {2, 10000}) {
    char byte = 'x';
    EXPECT_EQ(tq_strerror_r(code, &byte, 0), &byte);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(tq_strerror_r(code, nullptr, 10), nullptr);
  }
}

// What the library writes when it cannot write the message: each entry says whether that attempt
// fails.
class FailingPrint {
 public:
  explicit FailingPrint(std::vector<bool> failing) {
    attempts.clear();
    failures = std::move(failing);
    if (library_imports("__snprintf_chk")) checked_hook_.emplace("__snprintf_chk", &print_checked);
  }

  static inline std::vector<std::string> attempts;  // what was written, or would have been

 private:
  static int print(char* buffer, size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = attempt(buffer, size, format, arguments);
    va_end(arguments);
    return length;
  }

  static int print_checked(char* buffer, size_t size, int, size_t, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = attempt(buffer, size, format, arguments);
    va_end(arguments);
    return length;
  }

  static int attempt(char* buffer, size_t size, const char* format, va_list arguments) {
    char text[256];
    const int length = vsnprintf(text, sizeof text, format, arguments);
    const size_t number = attempts.size();
    attempts.emplace_back(text);
    if (number < failures.size() && failures[number]) return -1;
    memcpy(buffer, text, std::min(size, sizeof text));
    return length;
  }

  static inline std::vector<bool> failures;
  Hook<int (*)(char*, size_t, const char*, ...)> hook_{"snprintf", &print};
  // Which of the two a call becomes is up to the compiler.
  std::optional<Hook<int (*)(char*, size_t, int, size_t, const char*, ...)>> checked_hook_;
};

TEST(StrError, SaysSoWhenTheMessageCannotBeWritten) {
  const FailingPrint print({true});
  char buffer[256] = "";
  errno = 0;
  EXPECT_EQ(tq_strerror_r(10101, buffer, sizeof buffer), buffer);
  EXPECT_THAT(FailingPrint::attempts,
              ElementsAre("_Tarvio status utility memory allocation failed.",
                          "tq_strerror buffer overflow for 10101", "Unkown error 10101"));
  EXPECT_STREQ(buffer, "Unkown error 10101");
  EXPECT_EQ(errno, 0);
}

TEST(StrError, Sets34WhenTheFirstSubstituteFails) {
  const FailingPrint print({true, true});
  char buffer[256] = "";
  errno = 0;
  tq_strerror_r(10000, buffer, sizeof buffer);
  EXPECT_STREQ(buffer, "Unkown error 10000");
  EXPECT_EQ(errno, 34);
}

TEST(StrError, Sets22WhenTheSecondSubstituteFails) {
  for (const bool first_fails : {false, true}) {
    const FailingPrint print({true, first_fails, true});
    char buffer[256] = "";
    errno = 0;
    tq_strerror_r(10305, buffer, sizeof buffer);
    EXPECT_STREQ(buffer, first_fails ? "" : "tq_strerror buffer overflow for 10305");
    EXPECT_EQ(errno, 22);
  }
}

TEST(ContainedError, IsFoundAnywhereInTheText) {
  EXPECT_EQ(tq_get_contained_err("No space left on device"), 28);
  EXPECT_EQ(tq_get_contained_err("tar: No space left on device"), 28);
  EXPECT_EQ(tq_get_contained_err("No space left on device: stop\n"), 28);
}

TEST(ContainedError, IsEveryErrorThatTheSystemKnows) {
  for (int error = 1; error <= 133; ++error) {
    if (error == 41 || error == 58) continue;  // unassigned
    // The message of ERESTART holds that of EINTR.
    EXPECT_EQ(tq_get_contained_err(strerror(error)), error == ERESTART ? EINTR : error);
  }
}

TEST(ContainedError, IsTheSmallestWhereverItStands) {
  EXPECT_EQ(tq_get_contained_err("Permission denied, No such file or directory"), 2);
  EXPECT_EQ(tq_get_contained_err("No such file or directory, Permission denied"), 2);
}

TEST(ContainedError, IsNoneInATextOfSuccess) {
  EXPECT_EQ(tq_get_contained_err("Success"), 0);
  EXPECT_EQ(tq_get_contained_err("Success: No such file or directory"), 0);
  EXPECT_EQ(tq_get_contained_err("No such file or directory: Success"), 0);
}

TEST(ContainedError, NeedsTheWholeMessage) {
  for (const char* text : {"", "x", "No such file or director", "no such file or directory",
                           "o space left on device", "Unknown error 134", "Unknown error 41"}) {
    EXPECT_EQ(tq_get_contained_err(text), 0) << text;
  }
  EXPECT_EQ(tq_get_contained_err(nullptr), 0);
}

// What a search for each message in turn finds.
int32_t searched(const std::string& text) {
  for (int error = 0; error <= 133; ++error) {
    if (error == 41 || error == 58) continue;  // unassigned
    if (text.find(strerror(error)) != std::string::npos) return error;
  }
  return 0;
}

TEST(ContainedError, IsWhatASearchForEachMessageFinds) {
  std::mt19937 engine(20260704);
  const auto random = [&](size_t below) { return engine() % below; };
  int found = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (size_t pieces = random(4); pieces > 0; --pieces) {
      const std::string message = strerror(1 + static_cast<int>(random(133)));
      const size_t cut = random(4) == 0 ? random(message.size() + 1) : 0;
      text += random(2) == 0 ? message.substr(cut) : message.substr(0, message.size() - cut);
      text += random(2) == 0 ? ": " : "";
    }
    const int32_t expected = searched(text);
    ASSERT_EQ(tq_get_contained_err(text.c_str()), expected) << text;
    if (expected != 0) ++found;
  }
  EXPECT_GT(found, 5000);
}

class CommandResult : public testing::Test {
 protected:
  std::vector<std::string> logged() const { return unit_messages(log_, kUnit); }

  StringList lines_;
  const LogCapture log_{TQ_LOG_DEBUG};
};

TEST_F(CommandResult, IsTheErrorOfTheFirstLineThatHoldsOne) {
  lines_.add("writing\n");
  lines_.add("tar: No space left on device\n");
  lines_.add("tar: Permission denied\n");
  EXPECT_EQ(tq_check_command_result_error(lines_.get()), 28);
  EXPECT_THAT(lines_.texts(),
              ElementsAre("writing", "tar: No space left on device", "tar: Permission denied\n"));
  EXPECT_THAT(logged(), ElementsAre("debug: check command result - 3 checks  ",
                                    "debug: \tcheck writing - result 0 ",
                                    "debug: \tcheck tar: No space left on device - result 28 "));
}

TEST_F(CommandResult, IsNoErrorWithoutASystemMessage) {
  lines_.add("one\r\n");
  lines_.add("");
  lines_.add("Success");
  EXPECT_EQ(tq_check_command_result_error(lines_.get()), 0);
  EXPECT_THAT(lines_.texts(), ElementsAre("one", "", "Success"));
  EXPECT_THAT(logged(), ElementsAre("debug: check command result - 3 checks  ",
                                    "debug: \tcheck one - result 0 ", "debug: \tcheck  - result 0 ",
                                    "debug: \tcheck Success - result 0 "));
}

TEST_F(CommandResult, OfNoLinesIsNoError) {
  EXPECT_EQ(tq_check_command_result_error(lines_.get()), 0);
  EXPECT_THAT(logged(), ElementsAre("debug: check command result - 0 checks  "));
}

TEST_F(CommandResult, OfNoListIsNoError) {
  EXPECT_EQ(tq_check_command_result_error(nullptr), 0);
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(CommandResult, IsLookedForUpToAnElementThatIsNull) {
  lines_.add("one\n");
  tq_list_add(lines_.get(), nullptr);
  char behind[] = "Permission denied\n";
  tq_list_add(lines_.get(), behind);
  EXPECT_EQ(tq_check_command_result_error(lines_.get()), 0);
  EXPECT_STREQ(behind, "Permission denied\n");
  tq_list_remove(lines_.get(), 2);
}

TEST_F(CommandResult, LeavesTheCursorAlone) {
  lines_.add("one\n");
  lines_.add("two\n");
  tq_list_first(lines_.get());
  tq_check_command_result_error(lines_.get());
  EXPECT_STREQ(static_cast<char*>(tq_list_next(lines_.get())), "two");
}

}  // namespace
}  // namespace tarvio_test
