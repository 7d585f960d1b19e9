#include "own_request.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

#include <iterator>

#include "tarvio/com.h"
#include "tarvio/list.h"

namespace tarviod {

namespace {

struct Request {
  const char* path;
  const char* command;
  int answer_fd;
};

int ask(const char* path, const char* command) {
  const int fd = tq_request_com(path, command, 0, nullptr);
  if (fd < 0) return kNoAnswer;
  int code = kNoAnswer;
  tq_list_t* reply = tq_list_create();
  (void)tq_receive_com(fd, reply);
  if (const void* line = tq_list_first(reply); line != nullptr) {
    code = static_cast<int>(strtol(static_cast<const char*>(line), nullptr, 10));
  }
  (void)tq_list_free(reply, 1);
  (void)tq_socket_close(fd);
  return code;
}

void* run(void* argument) {
  auto* request = static_cast<Request*>(argument);
  const int code = ask(request->path, request->command);
  (void)!write(request->answer_fd, &code, sizeof code);
  (void)close(request->answer_fd);
  free(request);
  return nullptr;
}

}  // namespace

int begin_request(const char* path, const char* command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  auto* request = static_cast<Request*>(malloc(sizeof(Request)));
  int error = ENOMEM;
  if (request != nullptr) {
    *request = {.path = path, .command = command, .answer_fd = ends[1]};
    pthread_t thread = {};
    error = pthread_create(&thread, nullptr, run, request);
    if (error == 0) (void)pthread_detach(thread);
  }
  if (error == 0) return ends[0];
  free(request);
  for (const int end : ends) (void)close(end);
  errno = error;
  return -1;
}

int take_answer(int fd) {
  int code = kNoAnswer;
  ssize_t count = -1;
  do {
    count = read(fd, &code, sizeof code);
  } while (count < 0 && errno == EINTR);
  (void)close(fd);
  return count == sizeof code ? code : kNoAnswer;
}

}  // namespace tarviod
