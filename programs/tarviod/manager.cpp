#include "manager.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <array>

#include "request.h"
#include "tarvio/tarvio.h"

namespace tarviod {

namespace {

constexpr char kSource[] = "tarviod";
constexpr int64_t kStopDeadlineMs = 90'000;
constexpr char kEndPath[] = TQ_COM_SOCKET_PATH ".end";

void warn(const char* what, const char* why) {
  (void)fprintf(stderr, "tarviod: %s: %s\n", what, why);
  tq_log_func(TQ_LOG_WARNING, kSource, __LINE__, "%s: %s", what, why);
}

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

int64_t now_ms() {
  timespec now = {};
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

enum class Event { kSignal, kAnswer, kTimeout };

// Waits for a signal or an answer (answer_fd may be -1), until a point of time when that is not
// negative.
Event wait_for_event(int signal_fd, int answer_fd, int64_t until_ms) {
  while (true) {
    std::array<pollfd, 2> waited = {{
        {.fd = signal_fd, .events = POLLIN, .revents = 0},
        {.fd = answer_fd, .events = POLLIN, .revents = 0},
    }};
    const int64_t left = until_ms < 0 ? -1 : until_ms - now_ms();
    if (until_ms >= 0 && left <= 0) return Event::kTimeout;
    if (poll(waited.data(), waited.size(), static_cast<int>(left)) < 1) continue;
    if (waited[0].revents != 0) {
      char signals[16];
      (void)!read(signal_fd, signals, sizeof signals);
      return Event::kSignal;
    }
    if (waited[1].revents != 0) return Event::kAnswer;
  }
}

// Stops the applications through the socket at a path. False when there was no waiting for the end
// of it, as a second signal and the deadline have it.
bool stop_applications(const char* path, int signal_fd, int64_t until_ms) {
  const int answer_fd = begin_request(path, "stop_all");
  if (answer_fd < 0) {
    warn("cannot stop the applications", strerror(errno));
    return false;
  }
  switch (wait_for_event(signal_fd, answer_fd, until_ms)) {
    case Event::kAnswer:
      report_answer("stop_all", take_answer(answer_fd));
      return true;
    case Event::kSignal:
      warn("stopping the applications", "cut short by a second signal");
      return false;
    case Event::kTimeout:
      warn("stopping the applications", "not done within 90 seconds");
      return false;
  }
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

}  // namespace

bool set_up(Options& options) {
  raise_descriptor_limit();
  tq_log_init();
  tq_set_log_level(options.log_level);
  (void)tq_setup_status_manager();
  (void)tq_setup_package_manager();
  const bool all_bound = tq_setup_app_manager() == 1;
  const int applications = count_applications(all_bound);
  if (options.start_all && !all_bound) {
    warn("not starting the applications", "one without a binding would be tried for ever");
    options.start_all = false;
  }
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

void serve(const Options& options, int signal_fd) {
  int answer_fd = options.start_all ? begin_request(TQ_COM_SOCKET_PATH, "start_all") : -1;
  if (options.start_all && answer_fd < 0) warn("cannot start the applications", strerror(errno));
  while (wait_for_event(signal_fd, answer_fd, -1) == Event::kAnswer) {
    report_answer("start_all", take_answer(answer_fd));
    answer_fd = -1;
  }
  const char* socket = TQ_COM_SOCKET_PATH;
  if (!options.keep_applications) socket = stop_for_good(signal_fd);
  (void)unlink(socket);
}

}  // namespace tarviod
