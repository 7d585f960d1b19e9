#include "server.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <span>
#include <string_view>

#include "base/chain.h"
#include "base/pipe.h"
#include "connections.h"
#include "listening_socket.h"
#include "tarvio/app.h"
#include "tarvio/com.h"
#include "watchdog.h"

namespace tarviod {

namespace {

constexpr int kPauseMs = 100;

// Beside the words of the protocol, for clients that mean exactly one application.
constexpr std::array<tq_com_word, 3> kExactWords = {{
    {.word = "start_exact", .serve = tq_start_app_exact},
    {.word = "stop_exact", .serve = tq_stop_app_exact},
    {},
}};

void wait_a_moment() { (void)poll(nullptr, 0, kPauseMs); }

template <typename Record>
class RecordPipe {
 public:
  bool open() {
    tarvio::Pipe pipe;
    read_end_ = pipe.read_end.release();
    write_end_ = pipe.write_end.release();
    return read_end_ >= 0;
  }
  // A record is written and read whole: it is smaller than what a pipe takes at once. So what
  // fails may be tried again, and nothing goes on without it.
  void write(const Record& record) const {
    const std::string_view bytes(reinterpret_cast<const char*>(&record), sizeof record);
    while (!tarvio::write_all(write_end_, bytes)) wait_a_moment();
  }
  [[nodiscard]] Record read() const {
    Record record = {};
    const std::span<char> bytes(reinterpret_cast<char*>(&record), sizeof record);
    while (tarvio::read_some(read_end_, bytes) != sizeof record) wait_a_moment();
    return record;
  }
  [[nodiscard]] int read_end() const { return read_end_; }

 private:
  int read_end_ = -1;
  int write_end_ = -1;
};

// The thread uses them to the end of the process, so nobody closes them.
constinit Connections clients;
constinit RecordPipe<Job> jobs;
constinit RecordPipe<Result> results;

void run_job() {
  const Job job = jobs.read();
  results.write({.job = job, .code = job()});
}

[[noreturn]] void* serve(void* /*unused*/) {
  while (true) {
    end_steps();
    const bool has_job = clients.wait(jobs.read_end());
    begin_step();
    if (has_job) {
      run_job();
    } else {
      (void)clients.advance();
    }
  }
}

void serve_last_clients() {
  while (clients.has_client()) {
    (void)clients.wait(-1);
    begin_step();
    (void)clients.advance();
  }
}

// The stop of all does not reach a name that is contained in an earlier one (oddity 93).
int stop_applications() {
  int code = tq_stop_all_app();
  const tq_list_t* const known = tq_known_applications();
  if (known == nullptr) return code;
  for (const tq_app_info* app : tarvio::Elements<const tq_app_info>(known)) {
    const int result = app->stopped == 0 ? tq_stop_app_exact(app->package->name) : 0;
    if (code == 0) code = result;
  }
  return code;
}

}  // namespace

bool start_server(const SocketAccess& access) {
  if (!jobs.open() || !results.open()) return false;
  tq_set_com_words(kExactWords.data());
  count_starts_as_steps();
  const int listening_fd = listen_for_clients(access, tq_request_handler);
  if (listening_fd < 0) return false;
  clients.open(listening_fd, tq_request_handler);
  pthread_t thread = {};
  errno = pthread_create(&thread, nullptr, serve, nullptr);
  if (errno != 0) return false;
  (void)pthread_detach(thread);
  return true;
}

void run_on_server(Job job) { jobs.write(job); }

int result_fd() { return results.read_end(); }

Result read_result() { return results.read(); }

// Clients may wait for a start while the applications are stopped. So that none of these outlives
// the manager, no client finds the socket from then on, those that wait are answered, and a second
// stop follows them.
int stop_for_good() {
  const int code = stop_applications();
  (void)unlink(TQ_COM_SOCKET_PATH);
  serve_last_clients();
  const int code_of_late = stop_applications();
  return code == 0 ? code_of_late : code;
}

}  // namespace tarviod
