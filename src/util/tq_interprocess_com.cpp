// The com server, whose thread accepts connections and hands each to its handler, and the requests
// of clients.
#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <utility>

#include "base/chain.h"
#include "base/line_reader.h"
#include "base/list_appender.h"
#include "base/owners.h"
#include "base/socket_path.h"
#include "tarvio/com.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

static_assert(offsetof(tq_com_server, fd) == sizeof(void*));
static_assert(offsetof(tq_com_server, handler) == 2 * sizeof(void*));
static_assert(offsetof(tq_com_server, thread) == 3 * sizeof(void*));

namespace {

constexpr size_t kReplyLineSize = 255;
constexpr long kPauseNs = 100'000'000;

struct ComState {
  tq_list_t* tq_com_server_list;  // of tq_com_server
};
constinit ComState com_state = {};

int setup_failed(int result) {
  TQ_DEBUG("Com server setup failed %d", result);
  return result;
}

// A server's thread reads the number while a later set-up may retire it.
std::atomic_ref<int32_t> number_of(tq_com_server& server) {
  return std::atomic_ref<int32_t>(server.fd);
}

// A number that was closed and given out again belongs to the newest server alone.
void retire_number(int fd) {
  for (tq_com_server* server : tarvio::Elements<tq_com_server>(com_state.tq_com_server_list)) {
    if (server->fd == fd) number_of(*server).store(-1, std::memory_order_relaxed);
  }
}

tq_com_server* find_server(int fd) {
  if (com_state.tq_com_server_list == nullptr || fd < 0) return nullptr;
  for (tq_com_server* server : tarvio::Elements<tq_com_server>(com_state.tq_com_server_list)) {
    if (server->fd == fd) return server;
  }
  return nullptr;
}

struct FreeServer {
  void operator()(tq_com_server* server) const noexcept {
    free(server->path);
    free(server);
  }
};
using Server = std::unique_ptr<tq_com_server, FreeServer>;

Server make_server(const char* path, tq_com_handler_func handler) {
  Server server(tarvio::allocate<tq_com_server>().release());
  if (server == nullptr) return nullptr;
  *server = tq_com_server{};
  server->handler = handler;
  server->fd = -1;
  server->path = tarvio::copy_of(path).release();
  if (server->path == nullptr) return nullptr;
  return server;
}

// The server goes on the list whether it can listen or not (oddity 114).
int listen_on(int fd, Server server) {
  const int result = tq_socket_bind_unix_server_sock(fd, server->path);
  retire_number(fd);
  if (result == 0) server->fd = fd;
  if (!tarvio::ListAppender(*com_state.tq_com_server_list).append(std::move(server))) {
    errno = ENOMEM;
    return -1;
  }
  return result;
}

// Whether the connection, and not this process, was at fault, so that the next one may succeed.
bool is_transient(int error) { return error == EINTR || error == ECONNABORTED; }

// Trying again at once would only burn the processor until something frees what is short.
void pause_after_failure() {
  const timespec pause = {.tv_sec = 0, .tv_nsec = kPauseNs};
  (void)nanosleep(&pause, nullptr);
}

bool are_strings(int count, const char* const* args) {
  for (int at = 0; at < count; ++at) {
    if (args == nullptr || args[at] == nullptr) return false;
  }
  return true;
}

// The lines of a request in one piece; null when memory runs out.
tarvio::CString join_lines(const char* request, int count, const char* const* args) {
  size_t size = strlen(request) + 2;
  for (int at = 0; at < count; ++at) size += strlen(args[at]) + 1;
  tarvio::CString text(static_cast<char*>(malloc(size)));
  if (text == nullptr) return text;
  char* end = stpcpy(stpcpy(text.get(), request), "\n");
  for (int at = 0; at < count; ++at) end = stpcpy(stpcpy(end, args[at]), "\n");
  return text;
}

}  // namespace

int tq_setup_com_server(const char* path, tq_com_handler_func handler) {
  TQ_DEBUG("Setting up com server %s", path == nullptr ? "" : path);
  if (handler == nullptr) {
    errno = EINVAL;
    return setup_failed(-1);
  }
  if (!tarvio::is_socket_path(path)) return setup_failed(-1);
  if (com_state.tq_com_server_list == nullptr) com_state.tq_com_server_list = tq_list_create();
  Server server = make_server(path, handler);
  if (server == nullptr || com_state.tq_com_server_list == nullptr) {
    errno = ENOMEM;
    return setup_failed(-1);
  }

  (void)unlink(path);
  const int fd = tq_socket_create_unix_sock();
  if (fd < 0) return fd;
  const int result = listen_on(fd, std::move(server));
  if (result == 0) return fd;
  if (fd > 0) (void)close(fd);  // number 0 stays open (oddity 114)
  return setup_failed(result);
}

int tq_wait_com(int fd) {
  tq_com_server* server = find_server(fd);
  if (server == nullptr) return EINVAL;
  TQ_DEBUG("Create unix server socket.");
  const int result = pthread_create(&server->thread, nullptr, tq_com_handler, server);
  if (result == 0) (void)pthread_detach(server->thread);
  return result;
}

void* tq_com_handler(void* argument) {
  auto* server = static_cast<tq_com_server*>(argument);
  TQ_DEBUG("tq_com_handler!! %d", number_of(*server).load(std::memory_order_relaxed));
  while (true) {
    const int fd = number_of(*server).load(std::memory_order_relaxed);
    TQ_DEBUG("Waiting tq_com_handler %d", fd);
    const int client = tq_socket_accept_unix_sock(fd);
    if (client >= 0) {
      TQ_DEBUG("Accept client socket %d ", client);
      (void)server->handler(client);
      continue;
    }
    const int error = errno;
    TQ_DEBUG("client socket failure %d ", client);
    (void)close(client);
    if (!is_transient(error)) pause_after_failure();
  }
}

// The thread stays, and its accepts fail from then on (oddity 115).
int tq_stop_com_server(int fd) { return close(fd); }

int tq_request_com(const char* path, const char* request, int count, const char* const* args) {
  if (request == nullptr || !are_strings(count, args)) {
    errno = EINVAL;
    return -1;
  }
  if (!tarvio::is_socket_path(path)) return -1;
  const tarvio::CString lines = join_lines(request, count, args);
  if (lines == nullptr) return -1;
  const int fd = tq_socket_create_unix_sock();
  if (fd < 0) return fd;
  // An unconnected socket is a result too, and its reads find no data (oddity 116).
  if (tq_socket_connect_unix_sock(fd, path) != 0) return fd;
  (void)tarvio::send_all(fd, lines.get(), tarvio::Deadline::never());
  (void)shutdown(fd, SHUT_WR);
  return fd;
}

int tq_receive_com(int fd, tq_list_t* lines) {
  if (lines == nullptr) return EINVAL;
  tarvio::ReadAhead ahead;
  char room[kReplyLineSize];
  tarvio::LineCutter line(tarvio::LineEnd::kEither, room);
  tarvio::LineReader reader(fd, ahead, line);
  tarvio::ListAppender appender(*lines);
  while (reader.next()) {
    if (!appender.append_copy(tq_chop(line.text()))) return ENOMEM;
  }
  return errno;  // after a clean end too (oddity 117)
}
