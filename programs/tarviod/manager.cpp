#include "manager.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "base/deadline.h"
#include "base/owners.h"
#include "config.h"
#include "own_request.h"
#include "signals.h"
#include "tarvio/tarvio.h"
#include "warn.h"

namespace tarviod {

namespace {

using tarvio::Deadline;
using tarvio::Fd;

constexpr int kStopDeadlineMs = 90'000;
constexpr int kNoFd = -1;
constexpr char kEndPath[] = TQ_COM_SOCKET_PATH ".end";

// Beside the words of the protocol, for clients that mean exactly one application.
constexpr std::array<tq_com_word, 3> kExactWords = {{
    {.word = "start_exact", .serve = tq_start_app_exact},
    {.word = "stop_exact", .serve = tq_stop_app_exact},
    {},
}};

// Each process that was started costs two descriptors for good (oddity 42).
void raise_descriptor_limit() {
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max) return;
  limit.rlim_cur = limit.rlim_max;
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
    warn("cannot raise the descriptor limit", strerror(errno));
}

bool is_accepted(tq_package_info* package, tq_list_t* bindings) {
  tq_app_info* app = nullptr;
  if (tq_create_app_info(package, &app) != 0) return true;
  const tarvio::Allocated<tq_app_info> owner(app);
  return tq_check_app_biniding(app, bindings) != 0;
}

// Counts the applications that the application manager knows and names those that no binding
// accepts.
int count_applications(bool all_bound) {
  tq_package_info* packages = nullptr;
  const int listed = tq_list(TQ_CATEGORY_APPLICATION, TQ_SUBCATEGORY_ANY, nullptr, &packages);
  if (listed != 0) {
    warn("cannot list the installed applications", strerror(listed));
    (void)tq_delete_tq_package_info_recurse(&packages);  // the application manager has none either
  }

  tq_list_t* bindings = tq_list_create();
  (void)tq_list_add(bindings, linux_app_binding);
  int count = 0;
  for (tq_package_info* package = packages; package != nullptr; package = package->next) {
    ++count;
    if (!all_bound && !is_accepted(package, bindings)) {
      warn(package->name, "no binding accepts this application");
    }
  }
  (void)tq_list_free(bindings, 0);
  (void)tq_delete_tq_package_info_recurse(&packages);
  return count;
}

void report_answer(const char* command, int code) {
  if (code == 0) return;
  const tarvio::CString text(code == kNoAnswer ? nullptr : tq_get_err_mes(code));
  warn(command, text == nullptr ? "no answer from the com server" : text.get());
}

enum class Event { kEnd, kReload, kAnswer, kReport, kTimeout };

// What to wait for; -1 stands for no descriptor.
struct Waited {
  int signal_fd;
  int answer_fd;
  int report_fd;
  Deadline until;
};

Event wait_for_event(const Waited& waited) {
  while (!waited.until.passed()) {
    std::array<pollfd, 3> files = {{
        {.fd = waited.signal_fd, .events = POLLIN, .revents = 0},
        {.fd = waited.answer_fd, .events = POLLIN, .revents = 0},
        {.fd = waited.report_fd, .events = POLLIN, .revents = 0},
    }};
    if (poll(files.data(), files.size(), waited.until.remaining_ms()) < 1) continue;
    if (files[0].revents != 0) {
      return read_signal(waited.signal_fd) == SIGHUP ? Event::kReload : Event::kEnd;
    }
    if (files[1].revents != 0) return Event::kAnswer;
    if (files[2].revents != 0) return Event::kReport;
  }
  return Event::kTimeout;
}

// Stops the applications through the socket at a path. False when the stop was not waited for to
// its end, after a second signal or the deadline.
bool stop_applications(const char* path, int signal_fd, const Deadline& deadline) {
  const Fd answer = send_request(path, "stop_all");
  if (!answer.valid()) {
    warn("cannot stop the applications", strerror(errno));
    return false;
  }
  Event event = Event::kReload;
  while (event == Event::kReload) {
    event = wait_for_event({signal_fd, answer.get(), kNoFd, deadline});
  }
  if (event == Event::kAnswer) {
    report_answer("stop_all", read_answer(answer));
    return true;
  }
  warn("stopping the applications",
       event == Event::kEnd ? "cut short by a second signal" : "timed out after 90 seconds");
  return false;
}

// Clients may wait for a start while the applications are stopped. So that none of these starts
// outlives the manager, a second stop follows them, by a path that no client knows. Returns where
// the socket is then: the old path may be another manager's already.
const char* stop_for_good(int signal_fd) {
  const Deadline deadline = Deadline::after(kStopDeadlineMs);
  if (!stop_applications(TQ_COM_SOCKET_PATH, signal_fd, deadline)) return TQ_COM_SOCKET_PATH;
  if (rename(TQ_COM_SOCKET_PATH, kEndPath) != 0) {
    warn("cannot rename " TQ_COM_SOCKET_PATH, strerror(errno));
    return TQ_COM_SOCKET_PATH;
  }
  (void)stop_applications(kEndPath, signal_fd, deadline);
  return kEndPath;
}

// A file with a mistake changes nothing.
void reload(const Options& options, LogWatch& log_watch) {
  Config config;
  if (read_config(options.config, config)) log_watch.start(std::move(config));
}

}  // namespace

bool set_up(Options& options, LogWatch& log_watch) {
  raise_descriptor_limit();
  (void)tq_setup_status_manager();
  (void)tq_setup_package_manager();
  const bool all_bound = tq_setup_app_manager() == 1;
  const int applications = count_applications(all_bound);
  if (options.start_all && !all_bound) {
    warn("not starting the applications", "one without a binding would be retried forever");
    options.start_all = false;
  }
  log_watch.wait_for_begin();
  tq_set_com_words(kExactWords.data());
  errno = 0;
  if (const int result = tq_setup_com_manager(); result != 0) {
    warn("cannot answer on " TQ_COM_SOCKET_PATH, strerror(result > 0 ? result : errno));
    return false;
  }
  (void)printf("tarviod: %d application%s installed, answering on %s\n", applications,
               applications == 1 ? "" : "s", TQ_COM_SOCKET_PATH);
  (void)fflush(stdout);
  tq_log_func(TQ_LOG_INFO, TARVIO_UNIT, __LINE__, "%d applications installed, answering on %s",
              applications, TQ_COM_SOCKET_PATH);
  return true;
}

void serve(const Options& options, int signal_fd, LogWatch& log_watch) {
  Fd answer = options.start_all ? send_request(TQ_COM_SOCKET_PATH, "start_all") : Fd();
  if (options.start_all && !answer.valid()) warn("cannot start the applications", strerror(errno));
  for (Event event = Event::kTimeout; event != Event::kEnd;) {
    event =
        wait_for_event({signal_fd, answer.get(), log_watch.report_fd(), log_watch.reader_due()});
    if (event == Event::kReport) log_watch.handle_report();
    if (event == Event::kTimeout) log_watch.start_reader();
    if (event == Event::kReload) reload(options, log_watch);
    if (event == Event::kAnswer) {
      report_answer("start_all", read_answer(answer));
      answer.reset();
    }
  }
  log_watch.stop();
  const char* socket = TQ_COM_SOCKET_PATH;
  if (!options.keep_applications) socket = stop_for_good(signal_fd);
  (void)unlink(socket);
}

}  // namespace tarviod
