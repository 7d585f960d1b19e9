#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <string>

#include "support/com/sockets.h"
#include "support/files.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/unit_messages.h"
#include "tarvio/com.h"
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "util/tq_unix_sock";

mode_t mode_of(const std::string& path) {
  return static_cast<mode_t>(fs::status(path).permissions());
}

class UnixSocket : public testing::Test {
 protected:
  std::vector<std::string> logged() const { return unit_messages(log_, kUnit); }
  std::string path_of_length(size_t length) const {
    std::string path = directory_.path();
    while (path.size() + 4 <= length) path += "/.";
    return path + "/" + std::string(length - path.size() - 1, 's');
  }

  const TempDir directory_;
  const std::string path_ = directory_ / "socket";
  LogCapture log_{TQ_LOG_DEBUG};
};

TEST_F(UnixSocket, IsAStreamSocketThatNoChildInherits) {
  const Socket socket(tq_socket_create_unix_sock());
  int domain = 0;
  int type = 0;
  socklen_t size = sizeof domain;
  getsockopt(socket.fd(), SOL_SOCKET, SO_DOMAIN, &domain, &size);
  getsockopt(socket.fd(), SOL_SOCKET, SO_TYPE, &type, &size);
  EXPECT_EQ(domain, AF_UNIX);
  EXPECT_EQ(type, SOCK_STREAM);
  EXPECT_EQ(fcntl(socket.fd(), F_GETFD), FD_CLOEXEC);
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(UnixSocket, ThatCannotBeMadeIsNegativeAndLogged) {
  const Hook hook(
      "socket", +[](int, int, int) {
        errno = EMFILE;
        return -1;
      });
  EXPECT_EQ(tq_socket_create_unix_sock(), -1);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_THAT(logged(), ElementsAre("warning: Can't create unix socket."));
}

TEST_F(UnixSocket, BindListensAndLogsTheResultOfBindInsteadOfTheSocket) {
  const Socket socket = new_socket();
  EXPECT_EQ(tq_socket_bind_unix_server_sock(socket.fd(), path_.c_str()), 0);
  EXPECT_THAT(logged(), ElementsAre("debug: Binded unix socket fd =0 ",
                                    "debug: chmod fd " + std::to_string(socket.fd()) + " 0666 "));
  connect_to(path_);
}

TEST_F(UnixSocket, BindListensWithABacklogOfFive) {
  int backlog = -1;
  Hook hook("listen", [&](int, int asked) {
    backlog = asked;
    return 0;
  });
  tq_socket_bind_unix_server_sock(new_socket().fd(), path_.c_str());
  EXPECT_EQ(backlog, 5);
}

class Umask : public UnixSocket, public testing::WithParamInterface<mode_t> {};

TEST_P(Umask, DoesNotChangeThatEverybodyMayConnect) {
  const mode_t before = umask(GetParam());
  tq_socket_bind_unix_server_sock(new_socket().fd(), path_.c_str());
  umask(before);
  EXPECT_EQ(mode_of(path_), 0666U);
}

INSTANTIATE_TEST_SUITE_P(UnixSocket, Umask, testing::Values(0, 022, 077, 0777));

TEST_F(UnixSocket, BindRemovesWhatWasAtThePath) {
  write_file(path_, "in the way");
  EXPECT_EQ(tq_socket_bind_unix_server_sock(new_socket().fd(), path_.c_str()), 0);
  EXPECT_TRUE(fs::is_socket(path_));
}

TEST_F(UnixSocket, FailedBindStillChangesTheModeAndListens) {
  fs::create_directory(path_);  // cannot be removed with unlink
  const Socket socket = new_socket();
  EXPECT_EQ(tq_socket_bind_unix_server_sock(socket.fd(), path_.c_str()), -1);
  EXPECT_EQ(errno, EINVAL);  // of the listen
  EXPECT_EQ(mode_of(path_), 0666U);
  EXPECT_THAT(logged(), ElementsAre("warning: Can't bind unix socket.",
                                    "debug: chmod fd " + std::to_string(socket.fd()) + " 0666 ",
                                    "warning: Can't listen unix socket."));
}

TEST_F(UnixSocket, FailedBindShowsOnlyInTheListen) {
  const Hook bind_hook(
      "bind", +[](int, const sockaddr*, socklen_t) { return -1; });
  const Hook listen_hook(
      "listen", +[](int, int) { return 0; });
  EXPECT_EQ(tq_socket_bind_unix_server_sock(new_socket().fd(), path_.c_str()), 0);
  EXPECT_EQ(logged().front(), "warning: Can't bind unix socket.");
}

TEST_F(UnixSocket, FailedListenIsTheResult) {
  const Hook hook(
      "listen", +[](int, int) {
        errno = EADDRINUSE;
        return -1;
      });
  EXPECT_EQ(tq_socket_bind_unix_server_sock(new_socket().fd(), path_.c_str()), -1);
  EXPECT_EQ(errno, EADDRINUSE);
  EXPECT_EQ(logged().back(), "warning: Can't listen unix socket.");
}

TEST_F(UnixSocket, AddressEndsWithThePath) {
  sockaddr_un bound = {};
  socklen_t length = 0;
  Hook hook("bind", [&](int, const sockaddr* address, socklen_t size) {
    memcpy(&bound, address, sizeof bound);
    length = size;
    return 0;
  });
  tq_socket_bind_unix_server_sock(new_socket().fd(), path_.c_str());
  EXPECT_EQ(bound.sun_family, AF_UNIX);
  EXPECT_EQ(bound.sun_path, path_);
  EXPECT_EQ(length, offsetof(sockaddr_un, sun_path) + path_.size());
}

class FittingPath : public UnixSocket, public testing::WithParamInterface<size_t> {};

TEST_P(FittingPath, WorksForServerAndClient) {
  const std::string path = path_of_length(GetParam());
  const Socket listener = new_socket();
  ASSERT_EQ(tq_socket_bind_unix_server_sock(listener.fd(), path.c_str()), 0);
  EXPECT_TRUE(fs::is_socket(path));
  EXPECT_EQ(mode_of(path), 0666U);
  EXPECT_EQ(tq_socket_connect_unix_sock(new_socket().fd(), path.c_str()), 0);
}

INSTANTIATE_TEST_SUITE_P(UnixSocket, FittingPath, testing::Values(30, 107, 108));

class RefusedPath : public UnixSocket, public testing::WithParamInterface<size_t> {};

TEST_P(RefusedPath, IsTooLongToBindAndLeftAlone) {
  const std::string path = path_of_length(GetParam());
  write_file(path, "mine");
  EXPECT_EQ(tq_socket_bind_unix_server_sock(new_socket().fd(), path.c_str()), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(read_file(path), "mine");
  EXPECT_EQ(mode_of(path), 0644U);
}

TEST_P(RefusedPath, IsTooLongToConnectTo) {
  const std::string path = path_of_length(GetParam());
  EXPECT_EQ(tq_socket_connect_unix_sock(new_socket().fd(), path.c_str()), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_THAT(logged(), ElementsAre("warning: Connect unix socket failed =36 "));
}

INSTANTIATE_TEST_SUITE_P(UnixSocket, RefusedPath, testing::Values(109, 110, 300));

TEST_F(UnixSocket, NeedsAPath) {
  const Socket socket = new_socket();
  for (const char* path : {static_cast<const char*>(nullptr), ""}) {
    errno = 0;
    EXPECT_EQ(tq_socket_bind_unix_server_sock(socket.fd(), path), -1);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(tq_socket_connect_unix_sock(socket.fd(), path), -1);
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST_F(UnixSocket, AcceptGivesASocketThatNoChildInherits) {
  const Socket listener = listen_on(path_);
  const Socket peer = connect_to(path_);
  const Socket client(tq_socket_accept_unix_sock(listener.fd()));
  EXPECT_EQ(fcntl(client.fd(), F_GETFD), FD_CLOEXEC);
  EXPECT_THAT(logged(),
              ElementsAre("debug: Accept unix socket fd =" + std::to_string(client.fd()) + " "));
  peer.send("through");
  peer.end_sending();
  EXPECT_EQ(client.read_to_end(), "through");
}

TEST_F(UnixSocket, FailedAcceptLogsTheErrorNumber) {
  EXPECT_EQ(tq_socket_accept_unix_sock(-1), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_THAT(logged(), ElementsAre("warning: Accept unix socket failed 9 "));
}

TEST_F(UnixSocket, ConnectReachesTheListener) {
  const Socket listener = listen_on(path_);
  const Socket socket = new_socket();
  EXPECT_EQ(tq_socket_connect_unix_sock(socket.fd(), path_.c_str()), 0);
  EXPECT_THAT(logged(), IsEmpty());
  accept_on(listener);
}

TEST_F(UnixSocket, FailedConnectLogsTheErrorNumber) {
  EXPECT_EQ(tq_socket_connect_unix_sock(new_socket().fd(), path_.c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(logged(), ElementsAre("warning: Connect unix socket failed =2 "));
}

TEST_F(UnixSocket, ConnectIsRefusedWhenNobodyListens) {
  listen_on(path_);  // gone at once; its file stays
  EXPECT_EQ(tq_socket_connect_unix_sock(new_socket().fd(), path_.c_str()), -1);
  EXPECT_THAT(logged(), ElementsAre("warning: Connect unix socket failed =111 "));
}

TEST_F(UnixSocket, ConnectGoesOnAfterASignal) {
  int calls = 0;
  Hook hook("connect", [&](int, const sockaddr*, socklen_t) {
    errno = EINTR;
    return ++calls < 3 ? -1 : 0;
  });
  EXPECT_EQ(tq_socket_connect_unix_sock(new_socket().fd(), path_.c_str()), 0);
  EXPECT_EQ(calls, 3);
}

TEST_F(UnixSocket, CloseGivesTheResultOfClose) {
  const int fd = new_socket().release();
  EXPECT_EQ(tq_socket_close(fd), 0);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(tq_socket_close(fd), -1);
  EXPECT_EQ(errno, EBADF);
}

}  // namespace
}  // namespace tarvio_test
