#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/com/sockets.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/string_list.h"
#include "tarvio/com.h"
#include "tarvio/text.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Arguments = std::vector<const char*>;

class Request : public testing::Test {
 protected:
  Socket request(const Arguments& arguments) const {
    return Socket(tq_request_com(path_.c_str(), "word", static_cast<int>(arguments.size()),
                                 arguments.data()));
  }

  const TempDir directory_;
  const std::string path_ = directory_ / "socket";
};

TEST_F(Request, IsLinesThatEndWithALineFeedAndTheEndOfData) {
  const std::pair<Arguments, std::string> rows[] = {
      {{}, "word\n"},
      {{"one"}, "word\none\n"},
      {{""}, "word\n\n"},
      {{"one", "two words", "3"}, "word\none\ntwo words\n3\n"},
  };
  for (const auto& [arguments, expected] : rows) {
    const Socket listener = listen_on(path_);
    const Socket reply = request(arguments);
    EXPECT_EQ(accept_on(listener).read_to_end(), expected);
  }
}

TEST_F(Request, TakesNoArgumentsAsNullAsWell) {
  const Socket listener = listen_on(path_);
  const Socket reply(tq_request_com(path_.c_str(), "word", 0, nullptr));
  EXPECT_EQ(accept_on(listener).read_to_end(), "word\n");
}

TEST_F(Request, GivesTheSocketThatTheReplyComesOn) {
  const Socket listener = listen_on(path_);
  const Socket reply = request({});
  accept_on(listener).send("12\n\n");
  EXPECT_EQ(reply.read_to_end(), "12\n\n");
}

TEST_F(Request, LargerThanTheSocketBufferGoesOutWhole) {
  const std::string argument(4 << 20, 'a');
  const Socket listener = listen_on(path_);
  std::string received;
  std::thread server([&] { received = accept_on(listener).read_to_end(); });
  const Socket reply = request({argument.c_str()});
  server.join();
  EXPECT_EQ(received, "word\n" + argument + "\n");
}

TEST_F(Request, IsUnconnectedWhenNobodyListens) {
  const Socket reply = request({"argument"});
  ASSERT_GE(reply.fd(), 0);
  const StringList lines;
  EXPECT_EQ(tq_receive_com(reply.fd(), lines.get()), EINVAL);  // of the read
  EXPECT_THAT(lines.texts(), IsEmpty());
}

TEST_F(Request, NeedsAPathThatFits) {
  const long before = count_descriptors();
  EXPECT_EQ(tq_request_com(std::string(109, 's').c_str(), "word", 0, nullptr), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(tq_request_com(nullptr, "word", 0, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(count_descriptors(), before);
}

TEST_F(Request, NeedsItsStrings) {
  const long before = count_descriptors();
  const char* arguments[] = {"one", nullptr};
  errno = 0;
  EXPECT_EQ(tq_request_com(path_.c_str(), nullptr, 0, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(tq_request_com(path_.c_str(), "word", 2, arguments), -1);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(tq_request_com(path_.c_str(), "word", 1, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(count_descriptors(), before);
}

TEST_F(Request, WithoutASocketGivesItsValue) {
  const Hook hook(
      "socket", +[](int, int, int) {
        errno = EMFILE;
        return -5;
      });
  EXPECT_EQ(tq_request_com(path_.c_str(), "word", 0, nullptr), -5);
  EXPECT_EQ(errno, EMFILE);
}

TEST_F(Request, NeedsMemory) {
  const long before = count_descriptors();
  const FailAlloc fail(1);
  EXPECT_EQ(tq_request_com(path_.c_str(), "word", 0, nullptr), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(count_descriptors(), before);
}

TEST_F(Request, SurvivesAServerThatClosesEarlyAndLeavesSignalsAlone) {
  struct sigaction pipe_action = {};
  sigset_t mask = {};
  signal(SIGPIPE, SIG_DFL);
  const Socket listener = listen_on(path_);
  Hook hook("connect", [&](int fd, const sockaddr* address, socklen_t length) {
    const int result = connect(fd, address, length);
    accept_on(listener).close();
    sigaction(SIGPIPE, nullptr, &pipe_action);
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return result;
  });
  EXPECT_EQ(request({"argument"}).read_to_end(), "");
  EXPECT_EQ(pipe_action.sa_handler, SIG_DFL);
  EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
}

// Receives what a peer sends before it ends.
class Reply : public testing::Test {
 protected:
  void receive(const std::string& bytes) {
    auto [ours, theirs] = socket_pair();
    theirs.send(bytes);
    theirs.close();
    result_ = tq_receive_com(ours.fd(), lines_.get());
  }

  StringList lines_;
  int result_ = -1;
};

std::string x(size_t count) { return std::string(count, 'x'); }

TEST_F(Reply, IsAppendedLineByLineWithoutTheLineFeeds) {
  using Lines = std::vector<std::string>;
  const std::pair<std::string, Lines> rows[] = {
      {"", {}},
      {"12\n\n", {"12", ""}},
      {"0\n", {"0"}},
      {"no end", {"no end"}},
      {"a\nb", {"a", "b"}},
      {"a\r\n", {"a\r", ""}},
      {"a\rb\n", {"a\r", "b"}},
      {"\r", {"\r"}},
      {"a\r\r\n\r", {"a\r", "\r", "", "\r"}},
      {std::string("a\0b\nc\n", 6), {"a", "c"}},
      {x(253) + "\n", {x(253)}},
      {x(254), {x(254)}},
      {x(254) + "\n", {x(254), ""}},
      {x(255) + "\n", {x(254), "x"}},
      {x(300) + "\n", {x(254), x(46)}},
      {x(253) + "\r\n", {x(253) + "\r", ""}},
      {x(254) + "\r\n", {x(254), "\r", ""}},
  };
  for (const auto& [bytes, expected] : rows) {
    auto [ours, theirs] = socket_pair();
    theirs.send(bytes);
    theirs.close();
    const StringList lines;
    tq_receive_com(ours.fd(), lines.get());
    EXPECT_EQ(lines.texts(), expected) << testing::PrintToString(bytes);
  }
}

TEST_F(Reply, IsAppendedAfterWhatTheListHolds) {
  lines_.add("before");
  receive("after\n");
  EXPECT_THAT(lines_.texts(), ElementsAre("before", "after"));
}

TEST_F(Reply, GoesIntoAListOfTheCallerAndNowhereElse) {
  struct {
    tq_list_t list;
    char after[8];
  } client = {{}, {'u', 'n', 't', 'o', 'u', 'c', 'h', 'd'}};
  auto [ours, theirs] = socket_pair();
  theirs.send("a\nb\n");
  theirs.close();
  tq_receive_com(ours.fd(), &client.list);
  EXPECT_STREQ(static_cast<char*>(tq_list_first(&client.list)), "a");
  EXPECT_STREQ(static_cast<char*>(tq_list_next(&client.list)), "b");
  EXPECT_EQ(client.list.count, 2);
  EXPECT_EQ(std::string_view(client.after, sizeof client.after), "untouchd");
  for (void* line; tq_list_get(&client.list, 0, &line) == 0; tq_list_remove(&client.list, 0)) {
    std::free(line);
  }
}

TEST_F(Reply, NeedsNoFurtherDescriptor) {
  auto [ours, theirs] = socket_pair();
  theirs.send("a\nb\n");
  theirs.close();
  const NoMoreDescriptors limit;
  EXPECT_EQ(dup(0), -1);
  tq_receive_com(ours.fd(), lines_.get());
  EXPECT_THAT(lines_.texts(), ElementsAre("a", "b"));
}

TEST_F(Reply, ComesInTheSamePiecesAsWithTheLineCall) {
  std::mt19937 random(7);
  const char alphabet[] = {'a', 'b', '\n', '\r', 'c', 'd', 'e', 'f'};
  for (int round = 0; round < 50; ++round) {
    std::string bytes;
    const size_t density = 1 + random() % 300;
    for (size_t size = random() % 20000; bytes.size() < size;)
      bytes += random() % density == 0 ? alphabet[random() % 4] : alphabet[4 + random() % 4];

    std::vector<std::string> pieces;
    auto [ours, theirs] = socket_pair();
    theirs.send(bytes);
    theirs.close();
    for (char line[255] = ""; tq_fdgets(line, sizeof line, ours.fd()) != nullptr;) {
      std::string piece = line;
      if (piece.ends_with('\n')) piece.pop_back();
      pieces.push_back(piece);
      std::memset(line, 0, sizeof line);
    }

    auto [reader, writer] = socket_pair();
    writer.send(bytes);
    writer.close();
    const StringList lines;
    tq_receive_com(reader.fd(), lines.get());
    ASSERT_EQ(lines.texts(), pieces);
  }
}

TEST_F(Reply, LeavesErrnoAloneAtACleanEnd) {
  errno = 77;
  receive("a\n");
  EXPECT_EQ(result_, 77);
  errno = 0;
  receive("a\n");
  EXPECT_EQ(result_, 0);
}

TEST_F(Reply, LeavesErrnoAloneWhenASignalOnlyDelaysIt) {
  int calls = 0;
  Hook hook("read", [&](int fd, void* buffer, size_t size) -> ssize_t {
    errno = EINTR;
    return ++calls % 2 == 1 ? -1 : read(fd, buffer, size);
  });
  errno = 0;
  receive("a\nb\n");
  EXPECT_THAT(lines_.texts(), ElementsAre("a", "b"));
  EXPECT_EQ(result_, 0);
}

TEST_F(Reply, GivesTheErrorThatEndsIt) { EXPECT_EQ(tq_receive_com(-1, lines_.get()), EBADF); }

TEST_F(Reply, NeedsAList) {
  auto [ours, theirs] = socket_pair();
  EXPECT_EQ(tq_receive_com(ours.fd(), nullptr), EINVAL);
}

TEST_F(Reply, KeepsTheLinesThatMemoryAllowed) {
  for (const int n : {3, 4}) {  // the copy of the second line, and its node
    StringList lines;
    auto [ours, theirs] = socket_pair();
    theirs.send("a\nb\n");
    theirs.close();
    const FailAlloc fail(n);
    EXPECT_EQ(tq_receive_com(ours.fd(), lines.get()), ENOMEM);
    EXPECT_THAT(lines.texts(), ElementsAre("a"));
  }
}

}  // namespace
}  // namespace tarvio_test
