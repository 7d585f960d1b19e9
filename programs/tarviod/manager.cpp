#include "manager.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "clock.h"
#include "config.h"
#include "own_request.h"
#include "signals.h"
#include "tarvio/tarvio.h"
#include "warn.h"

namespace tarviod {

namespace {

constexpr int64_t kStopDeadlineMs = 90'000;
constexpr char kEndPath[] = TQ_COM_SOCKET_PATH ".end";

// Each process that was started costs two descriptors for good.
void raise_descriptor_limit() {
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max) return;
  limit.rlim_cur = limit.rlim_max;
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
    warn("cannot raise the descriptor limit", strerror(errno));
}

// Counts the applications that the application manager knows and names those that no binding takes.
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
    tq_app_info* app = nullptr;
    if (all_bound || tq_create_app_info(package, &app) != 0) continue;
    if (tq_check_app_biniding(app, bindings) == 0) {
      warn("no binding takes the application", package->name);
    }
    free(app);
  }
  (void)tq_list_free(bindings, 0);
  (void)tq_delete_tq_package_info_recurse(&packages);
  return count;
}

void report_answer(const char* command, int code) {
  if (code == 0) return;
  char* text = code == kNoAnswer ? nullptr : tq_get_err_mes(code);
  warn(command, text == nullptr ? "no answer from the com server" : text);
  free(text);
}

enum class Event { kEnd, kReload, kAnswer, kReport, kTimeout };

// What is waited for. A descriptor may be -1; a negative point of time is none.
struct Waited {
  int signal_fd;
  int answer_fd;
  int report_fd;
  int64_t until_ms;
};

Event wait_for_event(const Waited& waited) {
  while (true) {
    std::array<pollfd, 3> files = {{
        {.fd = waited.signal_fd, .events = POLLIN, .revents = 0},
        {.fd = waited.answer_fd, .events = POLLIN, .revents = 0},
        {.fd = waited.report_fd, .events = POLLIN, .revents = 0},
    }};
    const int64_t left = waited.until_ms < 0 ? -1 : waited.until_ms - now_ms();
    if (waited.until_ms >= 0 && left <= 0) return Event::kTimeout;
    if (poll(files.data(), files.size(), static_cast<int>(left)) < 1) continue;
    if (files[0].revents != 0) {
      return take_signal(waited.signal_fd) == SIGHUP ? Event::kReload : Event::kEnd;
    }
    if (files[1].revents != 0) return Event::kAnswer;
    if (files[2].revents != 0) return Event::kReport;
  }
}

Event wait_for_end_of_stop(int signal_fd, int answer_fd, int64_t until_ms) {
  Event event = Event::kReload;
  while (event == Event::kReload) event = wait_for_event({signal_fd, answer_fd, -1, until_ms});
  return event;
}

// Stops the applications through the socket at a path. False when there was no waiting for the end
// of it, as a second signal and the deadline have it.
bool stop_applications(const char* path, int signal_fd, int64_t until_ms) {
  const int answer_fd = begin_request(path, "stop_all");
  if (answer_fd < 0) {
    warn("cannot stop the applications", strerror(errno));
    return false;
  }
  const Event event = wait_for_end_of_stop(signal_fd, answer_fd, until_ms);
  if (event == Event::kAnswer) {
    report_answer("stop_all", take_answer(answer_fd));
    return true;
  }
  warn("stopping the applications",
       event == Event::kEnd ? "cut short by a second signal" : "not done within 90 seconds");
  return false;
}

// Clients may wait for a start while the applications are stopped. So that none of these starts
// outlives the manager, a second stop comes behind them, by a path that no client knows. Returns
// where the socket is then: the old path may be another manager's already.
const char* stop_for_good(int signal_fd) {
  const int64_t until_ms = now_ms() + kStopDeadlineMs;
  if (!stop_applications(TQ_COM_SOCKET_PATH, signal_fd, until_ms)) return TQ_COM_SOCKET_PATH;
  if (rename(TQ_COM_SOCKET_PATH, kEndPath) != 0) {
    warn("cannot rename " TQ_COM_SOCKET_PATH, strerror(errno));
    return TQ_COM_SOCKET_PATH;
  }
  (void)stop_applications(kEndPath, signal_fd, until_ms);
  return kEndPath;
}

// A file that is of no use changes nothing.
void reload(const Options& options, LogMonitor& log_monitor) {
  Config config;
  if (read_config(options.config, config)) log_monitor.start(std::move(config));
}

}  // namespace

bool set_up(Options& options, LogMonitor& log_monitor) {
  raise_descriptor_limit();
  (void)tq_setup_status_manager();
  (void)tq_setup_package_manager();
  const bool all_bound = tq_setup_app_manager() == 1;
  const int applications = count_applications(all_bound);
  if (options.start_all && !all_bound) {
    warn("not starting the applications", "one without a binding would be tried for ever");
    options.start_all = false;
  }
  log_monitor.wait_for_begin();
  errno = 0;
  if (const int result = tq_setup_com_manager(); result != 0) {
    warn("cannot answer on " TQ_COM_SOCKET_PATH, strerror(result > 0 ? result : errno));
    return false;
  }
  (void)printf("tarviod: %d application%s installed, answering on %s\n", applications,
               applications == 1 ? "" : "s", TQ_COM_SOCKET_PATH);
  (void)fflush(stdout);
  tq_log_func(TQ_LOG_INFO, kSource, __LINE__, "%d applications installed, answering on %s",
              applications, TQ_COM_SOCKET_PATH);
  return true;
}

void serve(const Options& options, int signal_fd, LogMonitor& log_monitor) {
  int answer_fd = options.start_all ? begin_request(TQ_COM_SOCKET_PATH, "start_all") : -1;
  if (options.start_all && answer_fd < 0) warn("cannot start the applications", strerror(errno));
  for (Event event = Event::kTimeout; event != Event::kEnd;) {
    event = wait_for_event({signal_fd, answer_fd, log_monitor.report_fd(), log_monitor.due_ms()});
    if (event == Event::kReport) log_monitor.take_report();
    if (event == Event::kTimeout) log_monitor.start_reader();
    if (event == Event::kReload) reload(options, log_monitor);
    if (event == Event::kAnswer) {
      report_answer("start_all", take_answer(answer_fd));
      answer_fd = -1;
    }
  }
  log_monitor.stop();
  const char* socket = TQ_COM_SOCKET_PATH;
  if (!options.keep_applications) socket = stop_for_good(signal_fd);
  (void)unlink(socket);
}

}  // namespace tarviod
