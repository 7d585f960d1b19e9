// What applications print, on its way to the system log.
#include "keeper/app_output.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/pipe.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/descriptors.h"

namespace tarvio_test {
namespace {

using std::string_literals::operator""s;
using std::string_view_literals::operator""sv;
using tarviod::Output;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

using Messages = std::vector<std::string>;

constexpr size_t kStampBytes = sizeof "<182>Jan 12 00:00:12 " - 1;

// The test as the system log daemon.
class LogDaemon {
 public:
  LogDaemon() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = "/dev/log"};
    EXPECT_EQ(::bind(socket_.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~LogDaemon() { ::unlink("/dev/log"); }
  LogDaemon(const LogDaemon&) = delete;
  LogDaemon& operator=(const LogDaemon&) = delete;

  // The datagrams that have come since the last call.
  Messages take() const {
    Messages messages;
    char bytes[4096];
    for (ssize_t count; (count = ::recv(socket_.fd(), bytes, sizeof bytes, 0)) >= 0;)
      messages.emplace_back(bytes, static_cast<size_t>(count));
    return messages;
  }

 private:
  const Socket socket_;
};

// A program that prints: the end of its output that it writes to.
class Printer {
 public:
  explicit Printer(Output& output, const char* name = "webapp", bool is_error = false) {
    EXPECT_TRUE(output.add(std::move(pipe_.read_end), name, 12, is_error));
  }
  void print(std::string_view text) const {
    EXPECT_TRUE(tarvio::write_all(pipe_.write_end.get(), text));
  }
  void close() { pipe_.write_end.reset(); }

 private:
  tarvio::Pipe pipe_;
};

bool has_something_to_do(const Output& output) {
  pollfd ready = {.fd = output.fd(), .events = POLLIN, .revents = 0};
  return ::poll(&ready, 1, 0) == 1 || output.due().passed();
}

void handle_all(Output& output) {
  while (has_something_to_do(output)) output.handle();
}

class OutputTest : public testing::Test {
 protected:
  OutputTest() { EXPECT_TRUE(output_.open()); }

  Output& output() { return output_; }
  LogDaemon& daemon() { return *daemon_; }
  void start_daemon() { daemon_.emplace(); }
  void stop_daemon() { daemon_.reset(); }

  // What the daemon gets, without priority and time, while the program prints a text and ends.
  Messages texts_of(std::string_view text) {
    Messages texts;
    Printer program(output_);
    for (; !text.empty(); text.remove_prefix(std::min<size_t>(text.size(), 4000))) {
      program.print(text.substr(0, 4000));
      collect(texts);
    }
    program.close();
    finish(texts);
    return texts;
  }

  void collect(Messages& texts) {
    handle_all(output_);
    take(texts);
  }

  // The log holds few lines at a time, so each look is at many of them.
  void collect_until(Messages& texts, const auto& is_done) {
    EXPECT_TRUE(eventually([&] {
      for (int look = 0; look < 100; ++look) collect(texts);
      return is_done();
    }));
  }
  void finish(Messages& texts) {
    collect_until(texts, [&] { return output_.is_done(); });
    take(texts);
  }

  void take(Messages& texts) {
    if (!daemon_) return;
    for (const std::string& message : daemon_->take()) texts.push_back(message.substr(kStampBytes));
  }

 private:
  std::optional<LogDaemon> daemon_{std::in_place};
  Output output_;
};

Messages with_ident(Messages texts) {
  for (std::string& text : texts) text.insert(0, "webapp[12]: ");
  return texts;
}

TEST_F(OutputTest, IsLoggedLineByLineUnderNameAndProcess) {
  const Printer program(output());
  program.print("one\ntwo\n");
  handle_all(output());
  const auto* form =
      "<182>[A-Z][a-z][a-z] [ 123][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9] webapp\\[12\\]: ";
  EXPECT_THAT(daemon().take(),
              ElementsAre(MatchesRegex(form + "one"s), MatchesRegex(form + "two"s)));
}

TEST_F(OutputTest, OfErrorsIsANotice) {
  const Printer program(output(), "webapp", true);
  program.print("disk full\n");
  handle_all(output());
  EXPECT_THAT(daemon().take(), ElementsAre(MatchesRegex("<181>.* webapp\\[12\\]: disk full")));
}

TEST_F(OutputTest, WaitsForTheEndOfALine) {
  const Printer program(output());
  program.print("be");
  handle_all(output());
  program.print("gun");
  handle_all(output());
  EXPECT_THAT(daemon().take(), IsEmpty());
  program.print(" and done\n");
  handle_all(output());
  EXPECT_THAT(daemon().take(), ElementsAre(testing::EndsWith(": begun and done")));
}

TEST_F(OutputTest, EndsWithALineWithoutLineEnd) {
  EXPECT_EQ(texts_of("one\nlast"), with_ident({"one", "last"}));
}

TEST_F(OutputTest, KeepsEmptyLines) {
  EXPECT_EQ(texts_of("\n\none\r\n\r\n"), with_ident({"", "", "one", ""}));
}

TEST_F(OutputTest, ComesInPiecesOfThousandBytes) {
  const std::string piece(1000, 'x');
  EXPECT_EQ(texts_of(piece + "\n"), with_ident({piece}));
  EXPECT_EQ(texts_of(piece + "y\n"), with_ident({piece, "y"}));
  EXPECT_EQ(texts_of(piece + piece + "yz"), with_ident({piece, piece, "yz"}));
  EXPECT_EQ(texts_of("a\n" + piece + "y\nb\n"), with_ident({"a", piece, "y", "b"}));
}

TEST_F(OutputTest, IsNotCutInsideACharacter) {
  for (const std::string character : {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"}) {
    for (size_t before = 996; before < 1000; ++before) {
      const std::string text(before, 'x');
      const Messages whole = {text + character};
      const Messages cut = {text, character};
      EXPECT_EQ(texts_of(text + character + "\n"),
                with_ident(before + character.size() <= 1000 ? whole : cut));
    }
  }
  const std::string other(1500, '\x80');  // not UTF-8
  EXPECT_EQ(texts_of(other), with_ident({other.substr(0, 1000), other.substr(0, 500)}));
}

// They could end a message for the daemon and begin another one, or reach a terminal.
TEST_F(OutputTest, HasBlanksForControlBytes) {
  EXPECT_EQ(texts_of("a\0<11>b\tc\x1b[2Jd\x7f\xc3\xa9\r10 %\r\n"sv),
            with_ident({"a <11>b\tc [2Jd \xc3\xa9 10 %"}));
}

TEST_F(OutputTest, OfSeveralProgramsIsKeptApart) {
  const Printer clock(output(), "clock");
  const Printer radio(output(), "radio");
  clock.print("tick");
  radio.print("noise\nmo");
  handle_all(output());
  clock.print("\n");
  radio.print("re\n");
  handle_all(output());
  Messages texts;
  take(texts);
  EXPECT_THAT(texts, testing::UnorderedElementsAre("clock[12]: tick", "radio[12]: noise",
                                                   "radio[12]: more"));
}

Messages numbered(int count, const std::string& rest = "") {
  Messages lines;
  for (int line = 0; line < count; ++line) lines.push_back(std::to_string(line) + rest);
  return lines;
}

std::string joined(const Messages& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

TEST_F(OutputTest, LosesNothingOfTenThousandLines) {
  const Messages lines = numbered(10'000);
  EXPECT_EQ(texts_of(joined(lines)), with_ident(lines));
}

struct Arrived {
  Messages lines;
  long lost = 0;
  std::vector<std::string> reasons;
};

Arrived split_by_loss(const Messages& texts) {
  Arrived arrived;
  for (const std::string& text : texts) {
    const size_t reason = text.find(" lost: ");
    if (reason == std::string::npos) {
      arrived.lines.push_back(text);
    } else {
      arrived.lost += std::stol(text.substr(text.find(": ") + 2));
      arrived.reasons.push_back(text.substr(reason + 7));
    }
  }
  return arrived;
}

// The lines are there at once, so that far more than 20,000 come within a second.
TEST_F(OutputTest, IsCutBeyond20000LinesASecond) {
  constexpr int kLines = 1 << 18;
  const Arrived arrived = split_by_loss(texts_of(std::string(kLines, '\n')));
  EXPECT_GE(arrived.lines.size(), 20'000);
  EXPECT_GT(arrived.lost, 0);
  EXPECT_EQ(static_cast<long>(arrived.lines.size()) + arrived.lost, kLines);
  for (const std::string& reason : arrived.reasons)
    EXPECT_EQ(reason, "more than 20000 in a second");
}

TEST_F(OutputTest, SaysSoOfOneLine) {
  Messages texts;
  // It is taken if the second ends in between.
  for (int tries = 0; tries < 10 && split_by_loss(texts).lost == 0; ++tries)
    texts = texts_of(std::string(20'001, '\n'));
  EXPECT_THAT(texts, Contains(HasSubstr(": 1 line lost: more than 20000 in a second")));
}

TEST_F(OutputTest, SaysHowMuchWasCutWithoutAFurtherLine) {
  const Printer program(output());
  Messages texts;
  for (int chunk = 0; chunk < 256; ++chunk) {
    program.print(std::string(1024, '\n'));
    collect(texts);
  }
  collect_until(texts, [&] {
    const Arrived arrived = split_by_loss(texts);
    return static_cast<long>(arrived.lines.size()) + arrived.lost == 1 << 18;
  });
  EXPECT_FALSE(output().due().is_set());
}

// Longer lines than the queue has room for, while nobody takes them.
TEST_F(OutputTest, IsCutWhenAMebibyteWaits) {
  const Messages lines = numbered(3000, std::string(900, 'x'));
  Printer program(output());
  for (const std::string& line : lines) {
    program.print(line + "\n");
    handle_all(output());
  }
  EXPECT_FALSE(has_something_to_do(output()));
  program.close();
  Messages texts;
  finish(texts);
  const Arrived arrived = split_by_loss(texts);
  EXPECT_GT(arrived.lines.size(), 1000);
  EXPECT_EQ(arrived.lines,
            with_ident({lines.begin(), lines.begin() + static_cast<long>(arrived.lines.size())}));
  EXPECT_EQ(static_cast<long>(arrived.lines.size()) + arrived.lost, 3000);
  EXPECT_THAT(arrived.reasons, ElementsAre("more than 1 MiB was waiting for the system log"));
}

TEST_F(OutputTest, GoesOnWhenTheDaemonTakesLinesAgain) {
  const Messages lines = numbered(5000);
  Printer program(output());
  program.print(joined(lines));
  handle_all(output());
  EXPECT_FALSE(output().is_done());
  EXPECT_FALSE(has_something_to_do(output())) << "spins while the log is full";
  EXPECT_FALSE(output().due().is_set());
  program.close();
  Messages texts;
  finish(texts);
  EXPECT_EQ(texts, with_ident(lines));
}

TEST_F(OutputTest, WaitsForADaemonThatIsMissing) {
  stop_daemon();
  Printer program(output());
  program.print("early\n");
  handle_all(output());
  EXPECT_FALSE(has_something_to_do(output())) << "spins while the log is missing";
  EXPECT_TRUE(output().due().is_set());
  start_daemon();
  program.print("late\n");
  program.close();
  Messages texts;
  finish(texts);
  EXPECT_EQ(texts, with_ident({"early", "late"}));
}

TEST_F(OutputTest, FillsTheQueueWhileADaemonIsMissing) {
  stop_daemon();
  const Printer program(output());
  for (int line = 0; line < 3000; ++line) {
    program.print(std::string(999, 'x') + "\n");
    handle_all(output());
  }
  start_daemon();
  Messages texts;
  collect_until(texts, [&] {
    const Arrived arrived = split_by_loss(texts);
    return static_cast<long>(arrived.lines.size()) + arrived.lost == 3000;
  });
}

TEST_F(OutputTest, FindsADaemonThatWasRestarted) {
  Printer program(output());
  program.print("before\n");
  Messages texts;
  collect(texts);
  stop_daemon();
  program.print("meanwhile\n");
  handle_all(output());
  start_daemon();
  program.print("after\n");
  program.close();
  finish(texts);
  EXPECT_EQ(texts, with_ident({"before", "meanwhile", "after"}));
}

TEST_F(OutputTest, FindsADaemonThatWasRestartedWhileItWasFull) {
  const Messages lines = numbered(5000);
  Printer program(output());
  program.print(joined(lines));
  handle_all(output());
  stop_daemon();
  start_daemon();
  program.close();
  Messages texts;
  finish(texts);
  ASSERT_FALSE(texts.empty());
  EXPECT_EQ(texts.back(), "webapp[12]: 4999") << "lines that the old daemon held are gone with it";
}

TEST_F(OutputTest, HoldsNothingOfAProgramThatHasEnded) {
  (void)texts_of("x\n");  // the connection to the daemon stays
  const Descriptors before = open_descriptors();
  for (int program = 0; program < 100; ++program) (void)texts_of("begun");
  EXPECT_THAT(opened_since(before), IsEmpty());
  EXPECT_FALSE(has_something_to_do(output()));
  EXPECT_FALSE(output().due().is_set());
}

}  // namespace
}  // namespace tarvio_test
