#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "support/com/sockets.h"
#include "support/hooks/got_hook.h"
#include "tarvio/text.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;

// What a line comes from. On a socket, bytes can arrive in pieces, and a call can give less than a
// look ahead showed.
enum class Kind { kFile, kPipe, kSocket, kSocketInPieces, kSocketWithShortReads };

void PrintTo(Kind kind, std::ostream* stream) {
  static constexpr const char* kNames[] = {"File", "Pipe", "Socket", "SocketInPieces",
                                           "SocketWithShortReads"};
  *stream << kNames[static_cast<size_t>(kind)];
}

constexpr size_t kMostBytesOfASource = 60000;  // all fit into a pipe

// A descriptor that gives these bytes and then ends.
class Source {
 public:
  Source(Kind kind, const std::string& bytes) {
    EXPECT_LE(bytes.size(), kMostBytesOfASource);
    int ends[2] = {-1, -1};
    if (kind == Kind::kFile) {
      fd_ = ::memfd_create("source", MFD_CLOEXEC);
      write(fd_, bytes);
      ::lseek(fd_, 0, SEEK_SET);
      return;
    }
    EXPECT_EQ(kind == Kind::kPipe ? ::pipe(ends) : ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    fd_ = ends[0];
    write(ends[1], bytes);
    ::close(ends[1]);
    if (kind == Kind::kSocketInPieces) peeked_most_ = taken_most_ = 3;
    if (kind == Kind::kSocketWithShortReads) taken_most_ = 1;
  }
  ~Source() { ::close(fd_); }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  int fd() const { return fd_; }

  std::string rest() const {
    std::string bytes(kMostBytesOfASource, '\0');
    size_t count = 0;
    for (ssize_t more = 1; more > 0; count += static_cast<size_t>(more)) {
      more = std::max<ssize_t>(::read(fd_, bytes.data() + count, bytes.size() - count), 0);
    }
    bytes.resize(count);
    return bytes;
  }

 private:
  static void write(int fd, const std::string& bytes) {
    EXPECT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }

  struct Receive {
    const Source* source;
    ssize_t operator()(int fd, void* buffer, size_t size, int flags) const {
      const size_t most = (flags & MSG_PEEK) != 0 ? source->peeked_most_ : source->taken_most_;
      return ::recv(fd, buffer, std::min(size, most), flags);
    }
  };

  int fd_ = -1;
  size_t peeked_most_ = SIZE_MAX;
  size_t taken_most_ = SIZE_MAX;
  Hook<Receive> hook_{"recv", Receive{this}};
};

constexpr char kBefore = '.';  // fills a buffer before each call

// The whole buffer after a call of this size; "null" when there was no line.
std::string call(int fd, size_t size) {
  // A byte beyond is watched by AddressSanitizer and, natively, by the copy after it.
  const std::unique_ptr<char[]> buffer(new char[size + 1]);
  std::fill_n(buffer.get(), size + 1, kBefore);
  const char* result = tq_fdgets(buffer.get(), static_cast<uint32_t>(size), fd);
  EXPECT_EQ(buffer[size], kBefore);
  if (result == nullptr) return "null";
  EXPECT_EQ(result, buffer.get());
  return {buffer.get(), size};
}

// A buffer with a line that has its end: a zero after it, and one in the last byte.
std::string whole(std::string line, size_t size) {
  line += '\0';
  line.resize(size, kBefore);
  line.back() = '\0';
  return line;
}

// A buffer with a last line without its end: no zero after it.
std::string unended(std::string line, size_t size) {
  line.resize(size, kBefore);
  line.back() = '\0';
  return line;
}

class Fdgets : public testing::TestWithParam<Kind> {
 protected:
  static std::vector<std::string> all(const std::string& bytes, size_t size) {
    const Source source(GetParam(), bytes);
    std::vector<std::string> buffers;
    for (std::string got = call(source.fd(), size); got != "null"; got = call(source.fd(), size)) {
      buffers.push_back(got);
    }
    EXPECT_EQ(source.rest(), "");
    return buffers;
  }
};

TEST_P(Fdgets, KeepsTheLineEnd) {
  EXPECT_THAT(all("one\n\ntwo\n", 8),
              ElementsAre(whole("one\n", 8), whole("\n", 8), whole("two\n", 8)));
}

TEST_P(Fdgets, EndsALineAtACarriageReturnToo) {
  EXPECT_THAT(all("one\rtwo\r\n\r", 8),
              ElementsAre(whole("one\r", 8), whole("two\r", 8), whole("\n", 8), whole("\r", 8)));
}

TEST_P(Fdgets, StoresNoZeroAfterALastLineWithoutItsEnd) {
  EXPECT_THAT(all("one\ntwo", 8), ElementsAre(whole("one\n", 8), unended("two", 8)));
}

TEST_P(Fdgets, GivesALongLineInPieces) {
  EXPECT_THAT(all("abcdef", 4), ElementsAre(whole("abc", 4), whole("def", 4)));
  EXPECT_THAT(all("abcde\nf\n", 4),
              ElementsAre(whole("abc", 4), whole("de\n", 4), whole("f\n", 4)));
  EXPECT_THAT(all("abc\n", 4), ElementsAre(whole("abc", 4), whole("\n", 4)));
}

TEST_P(Fdgets, GivesOneByteAtATimeWithSize2) {
  EXPECT_THAT(all("ab\n", 2), ElementsAre(whole("a", 2), whole("b", 2), whole("\n", 2)));
}

TEST_P(Fdgets, TakesEveryOtherByteAsItIs) {
  const std::string line("a\0\xff\t\x1a", 5);
  EXPECT_THAT(all(line + "\n" + line, 8), ElementsAre(whole(line + "\n", 8), unended(line, 8)));
}

TEST_P(Fdgets, TakesLinesOfAnyLength) {
  constexpr size_t kSize = 1000;
  std::string bytes;
  std::vector<std::string> expected;
  for (const size_t length : std::initializer_list<size_t>{0, 1, 2, 100, 254, 255, 256, 257, 300,
                                                           511, 512, 513, 900, 998}) {
    const std::string line = std::string(length, 'x') + "\n";
    bytes += line;
    expected.push_back(whole(line, kSize));
  }
  EXPECT_EQ(all(bytes, kSize), expected);
}

TEST_P(Fdgets, LeavesEveryByteAfterTheLine) {
  for (const size_t length : std::initializer_list<size_t>{0, 1, 5, 253, 254, 255, 256, 257, 600}) {
    for (const char end : {'\n', '\r'}) {
      const std::string line = std::string(length, 'x') + end;
      const std::string rest = "\n\r" + std::string(700, 'y') + "\nz";
      const Source source(GetParam(), line + rest);
      EXPECT_EQ(call(source.fd(), 1000), whole(line, 1000));
      EXPECT_EQ(source.rest(), rest) << length;
    }
  }
}

TEST_P(Fdgets, LeavesEveryByteAfterAPiece) {
  for (const size_t size : std::initializer_list<size_t>{2, 3, 256, 257, 258, 300}) {
    const Source source(GetParam(), std::string(size - 1, 'x') + "rest\n");
    EXPECT_EQ(call(source.fd(), size), whole(std::string(size - 1, 'x'), size));
    EXPECT_EQ(source.rest(), "rest\n");
  }
}

TEST_P(Fdgets, ReadsNothingWithoutRoom) {
  const Source source(GetParam(), "abc\n");
  char bytes[2] = {'x', 'y'};
  EXPECT_EQ(tq_fdgets(bytes, 0, source.fd()), nullptr);
  EXPECT_EQ(bytes[0], 'x');
  EXPECT_EQ(tq_fdgets(bytes, 1, source.fd()), nullptr);
  EXPECT_EQ(bytes[0], '\0');
  EXPECT_EQ(bytes[1], 'y');
  EXPECT_EQ(tq_fdgets(nullptr, 10, source.fd()), nullptr);
  EXPECT_EQ(source.rest(), "abc\n");
}

TEST_P(Fdgets, GivesNullAtTheEndAndLeavesErrno) {
  const Source source(GetParam(), "a\n");
  errno = 0;
  EXPECT_EQ(call(source.fd(), 8), whole("a\n", 8));
  EXPECT_EQ(call(source.fd(), 8), "null");
  EXPECT_EQ(call(source.fd(), 8), "null");
  EXPECT_EQ(errno, 0);
}

TEST_P(Fdgets, SetsTheLastByteOfTheBufferAtTheEndToo) {
  const Source source(GetParam(), "");
  char buffer[] = "....";
  EXPECT_EQ(tq_fdgets(buffer, 4, source.fd()), nullptr);
  EXPECT_EQ(std::string(buffer, 4), std::string("...\0", 4));
}

INSTANTIATE_TEST_SUITE_P(Text, Fdgets,
                         testing::Values(Kind::kFile, Kind::kPipe, Kind::kSocket,
                                         Kind::kSocketInPieces, Kind::kSocketWithShortReads));

struct Calls {
  int recv = 0;
  int read = 0;
};

// The system calls for one line.
Calls calls_for_line(int fd, const std::string& line) {
  Calls calls;
  Hook recv("recv", [&](int from, void* buffer, size_t size, int flags) {
    ++calls.recv;
    return ::recv(from, buffer, size, flags);
  });
  Hook read("read", [&](int from, void* buffer, size_t size) {
    ++calls.read;
    return ::read(from, buffer, size);
  });
  EXPECT_EQ(call(fd, 1000), whole(line, 1000));
  return calls;
}

TEST(FdgetsCalls, AreTwoForALineOnASocket) {
  const auto [reader, writer] = socket_pair();
  for (const size_t length : std::initializer_list<size_t>{0, 1, 100, 255}) {
    const std::string line = std::string(length, 'x') + "\n";
    writer.send(line + line);
    for (int n = 0; n < 2; ++n) {
      const Calls calls = calls_for_line(reader.fd(), line);
      EXPECT_EQ(calls.recv, 2);
      EXPECT_EQ(calls.read, 0);
    }
  }
}

TEST(FdgetsCalls, AreOneForEachByteElsewhere) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(::pipe(ends), 0);
  const std::string line = std::string(100, 'x') + "\n";
  ASSERT_EQ(::write(ends[1], line.data(), line.size()), 101);
  EXPECT_EQ(calls_for_line(ends[0], line).read, 101);
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(FdgetsSignal, ChangesNothing) {
  for (const bool socket : {true, false}) {
    for (int turn = 1; turn <= 3; ++turn) {
      int failures = 0;
      int turns = 0;
      const auto interrupted = [&] {
        if (++turns != turn) return false;
        ++failures;
        errno = EINTR;
        return true;
      };
      int ends[2] = {-1, -1};
      ASSERT_EQ(socket ? ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : ::pipe(ends), 0);
      ASSERT_EQ(::write(ends[1], "abc\n", 4), 4);
      ::close(ends[1]);
      Hook recv("recv", [&](int from, void* buffer, size_t size, int flags) -> ssize_t {
        return socket && interrupted() ? -1 : ::recv(from, buffer, size, flags);
      });
      Hook read("read", [&](int from, void* buffer, size_t size) -> ssize_t {
        return !socket && interrupted() ? -1 : ::read(from, buffer, size);
      });
      errno = 0;
      EXPECT_EQ(call(ends[0], 8), whole("abc\n", 8));
      EXPECT_EQ(call(ends[0], 8), "null");
      EXPECT_EQ(errno, 0);
      EXPECT_EQ(failures, 1);
      ::close(ends[0]);
    }
  }
}

TEST(FdgetsError, GivesNullWithItsErrno) {
  errno = 0;
  EXPECT_EQ(call(-1, 8), "null");
  EXPECT_EQ(errno, EBADF);

  const auto [reader, writer] = socket_pair();
  ASSERT_EQ(::fcntl(reader.fd(), F_SETFL, O_NONBLOCK), 0);
  EXPECT_EQ(call(reader.fd(), 8), "null");
  EXPECT_EQ(errno, EAGAIN);
}

TEST(FdgetsError, GivesWhatCameBeforeIt) {
  const Source source(Kind::kFile, "abc\n");
  int turn = 0;
  Hook read("read", [&](int from, void* buffer, size_t size) -> ssize_t {
    errno = EIO;
    return ++turn == 3 ? -1 : ::read(from, buffer, size);
  });
  EXPECT_EQ(call(source.fd(), 8), unended("ab", 8));
  EXPECT_EQ(call(source.fd(), 8), whole("c\n", 8));
}

TEST(FdgetsError, GivesWhatASocketHadWithoutWaiting) {
  const auto [reader, writer] = socket_pair();
  ASSERT_EQ(::fcntl(reader.fd(), F_SETFL, O_NONBLOCK), 0);
  writer.send("ab");
  EXPECT_EQ(call(reader.fd(), 8), unended("ab", 8));
}

TEST(FdgetsSocket, WaitsForTheRestOfALine) {
  const auto [reader, writer] = socket_pair();
  std::thread sender([&writer = writer] {
    for (const char* piece : {"a", "bc", "d\nx"}) {
      writer.send(piece);
      // The next piece follows when this one was taken.
      for (int left = 1; left > 0 && piece[1] != '\n'; std::this_thread::yield()) {
        ::ioctl(writer.fd(), TIOCOUTQ, &left);
      }
    }
  });
  EXPECT_EQ(call(reader.fd(), 8), whole("abcd\n", 8));
  sender.join();
  writer.end_sending();
  EXPECT_EQ(reader.read_to_end(), "x");
}

}  // namespace
}  // namespace tarvio_test
