#include "base/line_reader.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/pipe.h"
#include "support/files.h"

namespace tarvio_test {
namespace {

using tarvio::Deadline;
using tarvio::Fd;
using tarvio::LineCutter;
using tarvio::LineEnd;
using tarvio::LineReader;
using tarvio::Pipe;
using tarvio::ReadAhead;
using testing::ElementsAre;
using testing::SizeIs;

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Lines = std::vector<std::string>;

class ReaderOfAPipe : public testing::Test {
 protected:
  void print(std::string_view text) { ASSERT_TRUE(tarvio::write_all(pipe_.write_end.get(), text)); }
  void end() { pipe_.write_end.reset(); }
  LineReader reader(const Deadline& deadline = Deadline::never()) {
    return {pipe_.read_end.get(), ahead_, line_, deadline};
  }
  Lines rest_of(LineReader& reader) {
    Lines lines;
    while (reader.next()) lines.emplace_back(line_.line());
    return lines;
  }

  Pipe pipe_;
  ReadAhead ahead_;
  LineCutter line_{LineEnd::kAny};
};

TEST_F(ReaderOfAPipe, GivesEachLineAndTheLastWithoutItsEnd) {
  print("one\ntwo\r\n\nlast");
  end();
  LineReader lines = reader();
  EXPECT_THAT(rest_of(lines), ElementsAre("one", "two", "", "last"));
  EXPECT_EQ(lines.error(), 0);
}

TEST_F(ReaderOfAPipe, LeavesErrnoAloneAtTheEnd) {
  end();
  LineReader lines = reader();
  errno = ENOTTY;
  EXPECT_FALSE(lines.next());
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_EQ(lines.error(), 0);
}

TEST_F(ReaderOfAPipe, GivesALineAsSoonAsItsEndIsThere) {
  print("one\ntw");
  LineReader lines = reader(Deadline::after(10'000));
  ASSERT_TRUE(lines.next());
  EXPECT_EQ(line_.line(), "one");
  print("o\n");
  ASSERT_TRUE(lines.next());
  EXPECT_EQ(line_.line(), "two");
}

TEST_F(ReaderOfAPipe, StaysAtItsEnd) {
  print("one\n");
  end();
  LineReader lines = reader();
  EXPECT_THAT(rest_of(lines), SizeIs(1U));
  EXPECT_FALSE(lines.next());
  EXPECT_FALSE(lines.next());
}

TEST_F(ReaderOfAPipe, EndsAtItsDeadline) {
  const auto begin = Clock::now();
  LineReader lines = reader(Deadline::after(50));
  EXPECT_FALSE(lines.next());
  EXPECT_EQ(lines.error(), ETIMEDOUT);
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_GE(Clock::now() - begin, 50ms);
}

TEST_F(ReaderOfAPipe, GivesWhatCameBeforeItsDeadline) {
  print("one\npart");
  LineReader lines = reader(Deadline::after(50));
  EXPECT_THAT(rest_of(lines), ElementsAre("one", "part"));
  EXPECT_EQ(lines.error(), ETIMEDOUT);
}

// The data never ends and is always there, so that no wait for it meets the deadline.
TEST(LineReader, EndsAtItsDeadlineWhileBytesKeepComing) {
  const Fd zeros(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
  ReadAhead ahead;
  std::array<char, 16> room;
  LineCutter line(LineEnd::kLineFeed, room, tarvio::Excess::kDropped);
  LineReader reader(zeros.get(), ahead, line, Deadline::after(50));
  EXPECT_TRUE(reader.next());  // what was read so far
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(reader.error(), ETIMEDOUT);
}

// A handler without SA_RESTART interrupts the wait and the read.
TEST_F(ReaderOfAPipe, GoesOnAfterASignal) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGALRM, &action, nullptr);
  for (const Deadline& deadline : {Deadline::never(), Deadline::after(10'000)}) {
    const itimerval soon = {.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = 20'000}};
    ::setitimer(ITIMER_REAL, &soon, nullptr);
    std::jthread writer([this] {
      sigset_t alarm;
      sigemptyset(&alarm);
      sigaddset(&alarm, SIGALRM);
      ::pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
      std::this_thread::sleep_for(100ms);
      print("one\n");
    });
    LineReader lines = reader(deadline);
    EXPECT_TRUE(lines.next());
    EXPECT_EQ(line_.line(), "one");
  }
}

TEST(LineReader, ReportsWhatCannotBeRead) {
  const Fd directory(::open("/", O_RDONLY | O_CLOEXEC));
  ReadAhead ahead;
  LineCutter line(LineEnd::kLineFeed);
  LineReader reader(directory.get(), ahead, line);
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(reader.error(), EISDIR);
  EXPECT_EQ(errno, EISDIR);
}

TEST(LineReader, ReadsManyLinesAtOnce) {
  const TempDir directory;
  std::string text;
  for (int n = 0; n < 500; ++n) text += std::to_string(n) + "\n";
  write_file(directory / "file", text);
  const Fd file(::open((directory / "file").c_str(), O_RDONLY | O_CLOEXEC));
  ReadAhead ahead;
  LineCutter line(LineEnd::kAny);
  LineReader reader(file.get(), ahead, line);
  ASSERT_TRUE(reader.next());
  EXPECT_EQ(::lseek(file.get(), 0, SEEK_CUR), static_cast<off_t>(text.size()));
  int number = 0;
  do {
    EXPECT_EQ(line.line(), std::to_string(number++));
  } while (reader.next());
  EXPECT_EQ(number, 500);
}

TEST_F(ReaderOfAPipe, GivesPiecesAsFgetsDoes) {
  const std::string full(255, 'x');
  print(full + "rest\n" + full + "\n" + full.substr(1) + "\nlast");
  end();
  tarvio::PieceReader piece(pipe_.read_end.get());
  Lines pieces;
  while (piece.next()) pieces.emplace_back(piece.text());
  EXPECT_THAT(pieces, ElementsAre(full, "rest\n", full, "\n", full.substr(1) + "\n", "last"));
}

}  // namespace
}  // namespace tarvio_test
