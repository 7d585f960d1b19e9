#include "server.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <span>
#include <string_view>

#include "apps/state_publisher.h"
#include "base/chain.h"
#include "base/pipe.h"
#include "connections.h"
#include "listening_socket.h"
#include "settings/warn.h"
#include "supervision/descriptors.h"
#include "supervision/notify.h"
#include "supervision/watchdog.h"
#include "tarvio/app.h"
#include "tarvio/com.h"

namespace tarviod {

namespace {

using tarvio::Deadline;

constexpr int kPauseMs = 100;

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

// The thread uses them to the end of the process, so nobody closes or destroys them.
constinit Connections clients;
constinit AppRunner* runner = nullptr;
constinit tarvio::Undestroyed<StatePublisher> kept_publisher;
constinit StatePublisher& publisher = kept_publisher.object;
constinit Deadline due = Deadline::never();  // of the runner, as of the last change
constinit tq_refresh_result refreshed = {};  // by the last refresh
constinit RecordPipe<Job> jobs;
constinit RecordPipe<Result> results;

// The file of states has their number.
void see_to_descriptors() {
  if (!watch_descriptors()) return;
  publisher.forget();
  publisher.publish(runner->runs());
}

// After everything that may have changed an application or a status.
void catch_up() {
  runner->follow();
  publisher.publish(runner->runs());
  due = Deadline::sooner(runner->next_due(), publisher.due());
  see_to_descriptors();
}

void run_job() {
  const Job job = jobs.read();
  const int code = job();
  catch_up();
  results.write({.job = job, .code = code});
}

// A request for statuses changes nothing.
bool asks_for_statuses(int client) {
  constexpr std::string_view kWord = "status_";
  std::array<char, kWord.size()> begin;
  const ssize_t count = recv(client, begin.data(), begin.size(), MSG_PEEK | MSG_DONTWAIT);
  return count == static_cast<ssize_t>(begin.size()) &&
         kWord == std::string_view(begin.data(), begin.size());
}

uint32_t serve_client(int32_t client) {
  const bool is_change = !asks_for_statuses(client);
  const uint32_t result = tq_request_handler(client);
  if (is_change) catch_up();
  return result;
}

[[noreturn]] void* serve(void* /*unused*/) {
  while (true) {
    end_steps();
    Connections::Others own = {{
        {.fd = jobs.read_end(), .events = POLLIN, .revents = 0},
        {.fd = runner->fd(), .events = POLLIN, .revents = 0},
    }};
    clients.wait(own, due);
    begin_step();
    if (own[0].revents != 0) {
      run_job();
    } else if (own[1].revents != 0 || due.passed()) {
      catch_up();
    } else {
      const size_t before = clients.count();
      (void)clients.advance();
      if (clients.count() > before) see_to_descriptors();
    }
  }
}

void serve_last_clients() {
  while (clients.has_client()) {
    Connections::Others none = {
        {{.fd = -1, .events = 0, .revents = 0}, {.fd = -1, .events = 0, .revents = 0}}};
    clients.wait(none, Deadline::never());
    begin_step();
    (void)clients.advance();
  }
}

// A client finds the file of states as the reply says.
int start_exact(const char* name) {
  const int code = tq_start_app_exact(name);
  catch_up();
  return code == 0 ? runner->reason_not_run(name) : code;
}

int stop_exact(const char* name) {
  const int code = tq_stop_app_exact(name);
  catch_up();
  return code;
}

int refresh_for_client(const char* /*unused*/) {
  const int code = refresh();
  catch_up();
  return code;
}

// After the code of a refresh.
const char* counts_of_refresh() {
  static char text[96];
  (void)snprintf(text, sizeof text, "\nadded %d\nremoved %d\nchanged %d\n",
                 static_cast<int>(refreshed.added), static_cast<int>(refreshed.removed),
                 static_cast<int>(refreshed.changed));
  return text;
}

int do_nothing(const char* /*unused*/) { return 0; }

// After the code.
const char* own_version() { return "\n" TARVIO_VERSION "\n"; }

// Beside the words of the protocol.
constexpr std::array<tq_com_word, 5> kWords = {{
    {.word = "start_exact", .serve = start_exact, .rest = nullptr},
    {.word = "stop_exact", .serve = stop_exact, .rest = nullptr},
    {.word = "refresh_apps", .serve = refresh_for_client, .rest = counts_of_refresh},
    {.word = "version", .serve = do_nothing, .rest = own_version},
    {},
}};

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

bool start_server(const SocketAccess& access, AppRunner& app_runner) {
  if (!jobs.open() || !results.open()) return false;
  runner = &app_runner;
  publisher = StatePublisher(access.mode, access.group);
  catch_up();
  tq_set_com_words(kWords.data());
  const int listening_fd = listen_for_clients(access, serve_client);
  if (listening_fd < 0) return false;
  clients.open(listening_fd, serve_client);
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
  runner->begin_end();
  const int code = stop_applications();
  (void)unlink(TQ_COM_SOCKET_PATH);
  serve_last_clients();
  const int code_of_late = stop_applications();
  runner->end_keeper();
  publisher.end();
  return code == 0 ? code_of_late : code;
}

int start_at_boot() { return runner->start_at_boot(); }

int look_around() { return 0; }

int refresh() {
  publisher.forget();
  refreshed = {};
  const int code = tq_refresh_applications(&refreshed);
  char text[96];
  (void)snprintf(text, sizeof text, "%d added, %d removed, %d changed",
                 static_cast<int>(refreshed.added), static_cast<int>(refreshed.removed),
                 static_cast<int>(refreshed.changed));
  if (refreshed.added + refreshed.removed + refreshed.changed > 0) inform("applications", text);
  notify_installed(tq_list_size(tq_known_applications()));
  return code;
}

}  // namespace tarviod
