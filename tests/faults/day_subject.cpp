// A day of the manager: it starts with two applications, starts and stops one of them, follows the
// system log, reads its configuration again, and ends. What fails once has to work when it is tried
// again, unless the manager has refused to start, or an oddity makes the failure last.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>

#include "faults/campaign.h"
#include "faults/device.h"
#include "support/apps/applications.h"
#include "support/files.h"
#include "tarvio/com.h"

namespace faults {

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tarvio_test::read_file;
using tarvio_test::write_file;
using tarvio_test::write_program;

constexpr char kConfigFile[] = "/etc/tarvio/tarviod.conf";
constexpr char kLogFile[] = "/var/log/messages";
constexpr milliseconds kLimit{3000};  // for what takes a few milliseconds without a fault

std::string trouble;

bool soon(const std::function<bool()>& condition, milliseconds limit = kLimit) {
  const auto deadline = steady_clock::now() + limit;
  while (!condition()) {
    if (steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

bool has_ended(pid_t process) {
  siginfo_t end = {};
  return waitid(P_PID, static_cast<id_t>(process), &end, WEXITED | WNOHANG | WNOWAIT) != 0 ||
         end.si_pid == process;
}

// What the manager answers; empty when it does not in time.
std::string answer_to(const std::string& words) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = TQ_COM_SOCKET_PATH};
  std::string answer;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      send(fd, words.data(), words.size(), MSG_NOSIGNAL) > 0 && shutdown(fd, SHUT_WR) == 0) {
    pollfd ready = {fd, POLLIN, 0};
    char bytes[1024];
    for (ssize_t count = 1; count > 0 && poll(&ready, 1, kLimit.count()) == 1;) {
      count = recv(fd, bytes, sizeof bytes, 0);
      if (count > 0) answer.append(bytes, static_cast<size_t>(count));
    }
  }
  close(fd);
  return answer;
}

bool has_status(const std::string& application, const std::string& detail) {
  const std::string statuses = "\n" + answer_to("status_all\n");
  const size_t at = statuses.find("\n" + application + "\n");
  return at != std::string::npos && statuses.substr(at, 40).find(detail) != std::string::npos;
}

void log_line(const std::string& level, const std::string& ident, const std::string& text) {
  std::ofstream(kLogFile, std::ios::app)
      << "Jan  1 00:00:00 board user." << level << " " << ident << "[1]: " << text << std::endl;
}

// Tries a step a second time when the first one does not succeed.
void step(pid_t manager, const char* name, const std::function<bool()>& succeeds) {
  if (!trouble.empty() || has_ended(manager) || succeeds() || succeeds()) return;
  trouble = std::string(name) + " does not work any more";
}

// Unlike those of other tests, the stop file does not wait for a start that never came.
std::string process_file(const std::string& name) { return "/run/faults/" + name + ".process"; }
std::string start_file(const std::string& name) {
  return "#!/bin/sh\necho $$ >" + process_file(name) + ".new\nmv " + process_file(name) + ".new " +
         process_file(name) + "\nexec sleep 600\n";
}
std::string stop_file(const std::string& name) {
  return "#!/bin/sh\nkill $(cat " + process_file(name) + ")\nrm " + process_file(name) + "\n";
}

// Empty of a process that has ended meanwhile.
std::string content_of(const fs::path& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

// Of one that runs once: there may be another one while its start file or stop file executes.
size_t count_of_processes(const std::string& name) {
  size_t count = 0;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string words = content_of(entry.path() / "cmdline");
    const std::string variables = content_of(entry.path() / "environ");
    if (words == std::string("sleep\0600", 10) + '\0' &&
        variables.find("TARVIO_APPLICATION=" + name + '\0') != std::string::npos) {
      ++count;
    }
  }
  return count;
}

// An application counts as started once there is a process: a second try stops it first.
bool starts() {
  if (answer_to("start_app\nclock\n").starts_with("0\n") &&
      soon([] { return fs::exists(process_file("clock")); }) &&
      soon([] { return has_status("clock", "started app"); })) {
    if (count_of_processes("clock") > 1) trouble = "an application runs twice";
    return true;
  }
  (void)answer_to("stop_app\nclock\n");
  fs::remove(process_file("clock"));  // when it was stopped before there was one
  return false;
}

bool stops() {
  if (!answer_to("stop_app\nclock\n").starts_with("0\n")) return false;
  const bool has_stopped =
      soon([] { return !has_status("clock", "") && count_of_processes("clock") == 0; });
  fs::remove(process_file("clock"));  // when the stop file could not run
  return has_stopped;
}

bool follows_log(const std::string& ident) {
  // One that comes while the manager changes its hooks may be passed over.
  for (int tries = 0; tries < 30; ++tries) {
    log_line("err", ident, "trouble");
    if (soon([&] { return has_status(ident, "trouble"); }, kLimit / 30)) return true;
  }
  return false;
}

bool reloads(pid_t manager) {
  write_file(kConfigFile, "log_period: 1\nhook.clock: clock\nhook.radio: radio\n");
  kill(manager, SIGHUP);
  return follows_log("radio");
}

void spend_day(pid_t manager) {
  const auto answers = [] {
    return read_file("/run/faults/output").find("answering on") != std::string::npos;
  };
  if (!soon([&] { return answers() || has_ended(manager); })) trouble = "never answers";
  step(manager, "a start", [] { return starts(); });
  step(manager, "following the log", [] { return follows_log("clock"); });
  step(manager, "a stop", [] { return stops(); });
  step(manager, "another start", [] { return starts(); });
  step(manager, "reading the configuration again", [&] { return reloads(manager); });
  if (trouble.empty() && has_ended(manager) && answers()) trouble = "ended by itself";
  kill(manager, SIGTERM);
}

// A status that could not be copied hides all new ones (oddity 37). An error without its text stays
// (oddity 35).
bool lasts(const Run& run) {
  const std::string place = place_of(run.record);
  for (const char* const caller : {" copy_status < tq_set_status2", " copy_of < tq_set_status2"}) {
    if (place.find(caller) != std::string::npos) return true;
  }
  return false;
}

void prepare() {
  trouble.clear();
  clear_device();
  fs::remove(TQ_COM_SOCKET_PATH);
  for (const char* name : {"clock", "radio"}) {
    tarvio_test::install_application(name);
    fs::remove(process_file(name));
    write_program(tarvio_test::information_file(name, ".tqstartapp"), start_file(name));
    write_program(tarvio_test::information_file(name, ".tqstopapp"), stop_file(name));
  }
  write_file(kConfigFile, "log_period: 1\nhook.clock: clock\n");
  // A stop file that comes before the process file ends nothing.
  fs::create_directories("/etc/tarvio/apps.d");
  write_file("/etc/tarvio/apps.d/clock.conf", "stop_timeout: 1\n");
  write_file(kLogFile, "");
}

}  // namespace

std::vector<Subject> day_subjects() {
  return {{.name = "tarviod",
           .program = {.command = {TARVIOD}, .use = spend_day, .also_loaded = TARVIOD_FAST_LOOKS},
           .set_up = [] {},
           .prepare = prepare,
           .state = [] { return fs::exists(TQ_COM_SOCKET_PATH) ? "socket left\n" : ""; },
           .said = [](const std::string&) { return ""; },
           // What starts and stops an application is not looked after, by contract.
           .has_forks = false,
           .wrong = [](const Run&) { return trouble; },
           .is_odd = lasts}};
}

}  // namespace faults
