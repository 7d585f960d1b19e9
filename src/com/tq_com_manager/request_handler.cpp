// Requests to the manager: the table of commands, and the set-up of the com server that accepts the
// connections (util/tq_interprocess_com).
#undef _FORTIFY_SOURCE  // or a host that wraps printf would not see the calls

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

#include "com/tq_com_manager/reply.h"
#include "com/tq_com_manager/request.h"
#include "tarvio/app.h"
#include "tarvio/com.h"
#include "tarvio/status_manager.h"
#include "util/log_macros.h"

namespace {

constexpr int kRequestTimeMs = 5000;
constexpr char kTwoLineEnds[] = "\n\n";

void send_code(int fd, int code, const char* line_ends) {
  tarvio::Reply reply(fd);
  (void)(reply.append_number(code) && reply.append(line_ends) && reply.send());
}

void send_statuses(int fd, int (*find)(tq_list_t** list)) {
  tq_list_t* list = nullptr;
  (void)find(&list);  // what could be copied is sent
  if (list == nullptr) return;
  TQ_DEBUG("Get status list size %d ", tq_list_size(list));
  tarvio::tq_send_status_list(fd, list);
}

void status_all(int fd, const char* /*name*/) { send_statuses(fd, tq_find_all_status2); }

// All applications, whatever the name (oddity 119).
void status_app(int fd, const char* /*name*/) {
  send_statuses(
      fd, [](tq_list_t** list) { return tq_find_by_type2(TQ_STATUS_TYPE_APPLICATION, list); });
}

// Without a name 22 is the answer here, and none in stop_app (oddity 120).
void start_app(int fd, const char* name) {
  if (name == nullptr) return send_code(fd, EINVAL, kTwoLineEnds);
  TQ_DEBUG("Handling start app %s ", name);
  send_code(fd, tq_start_app(name), kTwoLineEnds);
}

void start_all(int fd, const char* /*name*/) {
  TQ_DEBUG("Handling start all app");
  send_code(fd, tq_start_all_app(), kTwoLineEnds);
  TQ_DEBUG("start all app end");
}

void stop_app(int fd, const char* name) {
  if (name == nullptr) return;
  TQ_DEBUG("Handling stop app %s ", name);
  send_code(fd, tq_stop_app(name), kTwoLineEnds);
}

void stop_all(int fd, const char* /*name*/) {
  TQ_DEBUG("Handling stop all app");
  send_code(fd, tq_stop_all_app(), "\n");  // one line end, not two (oddity 118)
}

struct Command {
  const char* word;
  void (*serve)(int fd, const char* name);
};
constexpr std::array<Command, 6> kCommands = {{
    {"status_all", status_all},
    {"status_app", status_app},
    {"start_app", start_app},
    {"start_all", start_all},
    {"stop_app", stop_app},
    {"stop_all", stop_all},
}};

// The host's own words, up to a null one; null for none.
constinit const tq_com_word* host_words = nullptr;

void serve(int fd, const tarvio::Request& request) {
  if (request.command() == nullptr) return;
  for (const Command& command : kCommands) {
    if (strcmp(request.command(), command.word) == 0) {
      command.serve(fd, request.name());
      return;
    }
  }
  for (const tq_com_word* each = host_words; each != nullptr && each->word != nullptr; ++each) {
    if (strcmp(request.command(), each->word) == 0) {
      const int code = each->serve(request.name());
      return send_code(fd, code, each->rest == nullptr ? kTwoLineEnds : each->rest());
    }
  }
}

// Failures are printed, and not logged (oddity 123).
uint32_t end_connection(int fd) {
  (void)fsync(fd);
  if (shutdown(fd, SHUT_RDWR) != 0) {
    perror("shutdown failed.");
    (void)printf("fd is %d", fd);
  }
  if (close(fd) == 0) return 0;
  const int error = errno;
  perror("close failed");
  (void)printf("fd is %d", fd);
  return static_cast<uint32_t>(error);
}

}  // namespace

void tq_set_com_words(const tq_com_word* words) { host_words = words; }

uint32_t tq_request_handler(int32_t fd) {
  TQ_DEBUG("Com request handler");
  tarvio::Request request;
  if (request.read(fd, tarvio::Deadline::after(kRequestTimeMs))) serve(fd, request);
  return end_connection(fd);
}

int tq_setup_com_manager(void) {
  const int fd = tq_setup_com_server(TQ_COM_SOCKET_PATH, tq_request_handler);
  if (fd < 0) {
    TQ_WARNING("com server startup failed.");
    return fd;
  }
  return tq_wait_com(fd);
}
