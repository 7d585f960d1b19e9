#include "manager.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <optional>
#include <utility>

#include "apps/app_runner.h"
#include "apps/applications.h"
#include "apps/boot_order.h"
#include "apps/state_publisher.h"
#include "base/deadline.h"
#include "base/owners.h"
#include "runtime/config.h"
#include "runtime/growing_text.h"
#include "runtime/run_paths.h"
#include "runtime/state_file.h"
#include "server/server.h"
#include "settings/app_settings.h"
#include "settings/warn.h"
#include "supervision/notify.h"
#include "supervision/signals.h"
#include "supervision/watchdog.h"
#include "tarvio/tarvio.h"

namespace tarviod {

namespace {

using tarvio::Deadline;

constexpr int kNoFd = -1;
constexpr char kStopping[] = "stopping the applications";

const char* name_of(Job job) {
  return job == stop_for_good ? kStopping
         : job == refresh     ? "reading the installed applications"
                              : "starting the applications";
}

// The job that is done.
Job report_result() {
  const Result result = read_result();
  if (result.code != 0) {
    const tarvio::CString text(tq_get_err_mes(result.code));
    warn(name_of(result.job), text == nullptr ? strerror(ENOMEM) : text.get());
  }
  return result.job;
}

enum class Event { kEnd, kReload, kResult, kReport, kTimeout };

// report_fd  of the log watch; -1 for none.
Event wait_for_event(int signal_fd, int report_fd, const Deadline& until) {
  while (!until.passed()) {
    std::array<pollfd, 3> files = {{
        {.fd = signal_fd, .events = POLLIN, .revents = 0},
        {.fd = result_fd(), .events = POLLIN, .revents = 0},
        {.fd = report_fd, .events = POLLIN, .revents = 0},
    }};
    const int wait_ms = Deadline::sooner(until, feed_watchdog()).remaining_ms();
    if (poll(files.data(), files.size(), wait_ms) < 1) continue;
    if (files[0].revents != 0) {
      const int signal = read_signal(signal_fd);
      if (signal == 0) continue;
      return signal == SIGHUP ? Event::kReload : Event::kEnd;
    }
    if (files[1].revents != 0) return Event::kResult;
    if (files[2].revents != 0) return Event::kReport;
  }
  return Event::kTimeout;
}

// Ends, since the keeper kills what does not stop in time.
void stop_applications(int signal_fd) {
  run_on_server(stop_for_good);
  while (true) {
    const Event event = wait_for_event(signal_fd, kNoFd, Deadline::never());
    if (event == Event::kResult && report_result() == stop_for_good) return;
    if (event == Event::kEnd) return warn(kStopping, "cut short by a second signal");
  }
}

std::optional<int> set_up_applications() {
  (void)tq_set_repairs(TQ_REPAIR_ALL);
  (void)tq_setup_status_manager();
  (void)tq_setup_package_manager();
  (void)tq_setup_app_manager();
  return check_applications();
}

// For each hook its application, a tab and its place: what the com thread, which the applications
// belong to, has to look at next.
std::atomic<char*> hooks_to_check = nullptr;

void take_hooks(const Options& options, const runtime::Config& config) {
  runtime::GrowingText text;
  if (text.file() == nullptr) return;
  config.each_hook([&](const char* /*text*/, const char* application, const char* line) {
    (void)fprintf(text.file(), "%s\t%s:%s: %s\n", application, runtime::config_path(options.config),
                  line, application);
  });
  free(hooks_to_check.exchange(text.take().release()));
}

// Names the applications that are not installed. Their hooks count all the same.
int check_hooks() {
  const tarvio::CString hooks(hooks_to_check.exchange(nullptr));
  char* rest = hooks.get();
  while (rest != nullptr && *rest != '\0') {
    const char* const application = strsep(&rest, "\t");
    const char* const place = strsep(&rest, "\n");
    if (is_known_application(application)) continue;
    warn(place, "no application of this name is installed: write the whole name of its package");
  }
  return 0;
}

void report_count(int applications) {
  const char* const plural = applications == 1 ? "" : "s";
  (void)printf("tarviod: %d application%s installed, answering on %s\n", applications, plural,
               TQ_COM_SOCKET_PATH);
  (void)fflush(stdout);
  tq_log_func(TQ_LOG_INFO, TARVIO_UNIT, __LINE__, "%d applications installed, answering on %s",
              applications, TQ_COM_SOCKET_PATH);
  notify_installed(applications);
}

// A file with a mistake changes nothing.
void read_config_again(const Options& options, LogWatch& log_watch) {
  runtime::Config config;
  runtime::Mistake mistake;
  if (!runtime::read_config(options.config, config, mistake)) return warn(mistake);
  log_watch.start(std::move(config));
  inform(runtime::config_path(options.config), "read again");
  take_hooks(options, log_watch.config());
}

// Done with the result of the last job.
void reload(const Options& options, LogWatch& log_watch) {
  notify_reloading();
  read_config_again(options, log_watch);
  run_on_server(refresh);
  run_on_server(check_hooks);
}

// A file that is not whole is reported and ignored, one of another boot is of no use.
bool take_over(AppRunner& runner) {
  const tarvio::CString text = read_published_state();
  const std::optional<runtime::StateFile> previous =
      text == nullptr ? std::nullopt : runtime::StateFile::parse(text.get());
  if (text != nullptr && !previous) warn(runtime::kStatePath, "is not whole, so it is ignored");
  return runner.take_over(previous && previous->is_of_this_boot() ? &*previous : nullptr);
}

}  // namespace

bool set_up(const Options& options, LogWatch& log_watch, AppRunner& runner) {
  const std::optional<int> applications = set_up_applications();
  if (!applications || !take_over(runner)) return false;
  take_hooks(options, log_watch.config());
  (void)check_hooks();
  log_watch.wait_for_begin();
  if (!start_server(options.socket, runner)) {
    warn("cannot answer on " TQ_COM_SOCKET_PATH, strerror(errno));
    return false;
  }
  report_count(*applications);
  return true;
}

bool check_config(const Options& options, const runtime::Config& config) {
  if (!set_up_applications()) return false;
  take_hooks(options, config);
  (void)check_hooks();
  BootOrder order;
  if (!check_all_app_settings(is_known_application) || !order.read() || !order.is_right()) {
    return false;
  }
  inform(runtime::config_path(options.config), "valid");
  return true;
}

void serve(const Options& options, int signal_fd, LogWatch& log_watch) {
  if (options.start_all) run_on_server(start_at_boot);
  for (Event event = Event::kTimeout; event != Event::kEnd;) {
    event = wait_for_event(signal_fd, log_watch.report_fd(), log_watch.reader_due());
    if (event == Event::kReport) {
      log_watch.handle_report();
      run_on_server(look_around);
    }
    if (event == Event::kTimeout) log_watch.start_reader();
    if (event == Event::kReload) reload(options, log_watch);
    if (event == Event::kResult && report_result() == check_hooks) notify("READY=1");
  }
  const bool stops = !options.keep_applications;
  notify(stops ? "STOPPING=1\nSTATUS=stopping the applications" : "STOPPING=1");
  log_watch.stop();
  if (stops) stop_applications(signal_fd);
  (void)unlink(TQ_COM_SOCKET_PATH);
}

}  // namespace tarviod
