#include "own_request.h"

#include <errno.h>
#include <pthread.h>
#include <stdlib.h>

#include <utility>

#include "base/pipe.h"
#include "tarvio/com.h"
#include "tarvio/list.h"

namespace tarviod {

namespace {

struct Request {
  const char* path;
  const char* command;
  int answer_fd;  // owned by the thread
};

int ask(const char* path, const char* command) {
  const int fd = tq_request_com(path, command, 0, nullptr);
  if (fd < 0) return kNoAnswer;
  const tarvio::StringList reply(tq_list_create());
  (void)tq_receive_com(fd, reply.get());
  const auto* code = static_cast<const char*>(tq_list_first(reply.get()));
  (void)tq_socket_close(fd);
  return code == nullptr ? kNoAnswer : static_cast<int>(strtol(code, nullptr, 10));
}

void* run(void* argument) {
  const tarvio::Allocated<Request> request(static_cast<Request*>(argument));
  const tarvio::Fd answer(request->answer_fd);
  const int code = ask(request->path, request->command);
  (void)tarvio::write_all(answer.get(), {reinterpret_cast<const char*>(&code), sizeof code});
  return nullptr;
}

}  // namespace

tarvio::Fd send_request(const char* path, const char* command) {
  tarvio::Pipe pipe;
  tarvio::Allocated<Request> request = tarvio::allocate<Request>();
  if (!pipe.valid() || request == nullptr) return tarvio::Fd();
  *request = {.path = path, .command = command, .answer_fd = pipe.write_end.get()};
  pthread_t thread = {};
  errno = pthread_create(&thread, nullptr, run, request.get());
  if (errno != 0) return tarvio::Fd();
  (void)pthread_detach(thread);
  (void)request.release();
  (void)pipe.write_end.release();
  return std::move(pipe.read_end);
}

int read_answer(const tarvio::Fd& answer) {
  int code = kNoAnswer;
  const ssize_t count =
      tarvio::read_some(answer.get(), {reinterpret_cast<char*>(&code), sizeof code});
  return count == sizeof code ? code : kNoAnswer;
}

}  // namespace tarviod
