// The commands that ask the manager.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "faults/campaign.h"
#include "faults/device.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "tarvio/com.h"

namespace faults {

namespace {

namespace fs = std::filesystem;
using tarvio_test::ask;
using tarvio_test::eventually;
using tarvio_test::read_file;
using tarvio_test::write_file;

constexpr char kManagerOutput[] = "/run/faults/manager";

pid_t manager = -1;

void end_manager() {
  if (manager < 0) return;
  end_process(manager);
  manager = -1;
  // The keeper outlives it, and what the keeper runs outlives that one.
  for (auto left = own_children(); !left.empty(); left = own_children()) end_process(left.front());
}

void start_manager() {
  write_file(kManagerOutput, "");
  manager = fork();
  if (manager == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
      dup2(open(kManagerOutput, O_WRONLY | O_APPEND | O_CLOEXEC), stream);
    }
    execl(TARVIOD, "tarviod", nullptr);
    _exit(126);
  }
  keep_process(manager);
  if (!eventually(
          [] { return read_file(kManagerOutput).find("answering") != std::string::npos; })) {
    throw std::runtime_error("no manager answers: " + read_file(kManagerOutput));
  }
}

// The state is up to date when the reply comes.
void start_application(const std::string& name) {
  const std::string words = "start_exact\n" + name + "\n";
  if (ask(TQ_COM_SOCKET_PATH, words) != "0\n\n") throw std::runtime_error(words);
  tarvio_test::process_of(name);
}

}  // namespace

void prepare_installed_applications() {
  end_manager();
  clear_device();
  fs::remove(TQ_COM_SOCKET_PATH);
  for (const char* name : {"clock", "radio"}) {
    tarvio_test::install_application(name);
    tarvio_test::forget_process_of(name);
  }
}

namespace {

void prepare_stopped() {
  prepare_installed_applications();
  start_manager();
}

}  // namespace

void prepare_started_applications() {
  prepare_stopped();
  for (const char* name : {"clock", "radio"}) start_application(name);
}

namespace {

// An application of a package that opkg has installed.
void prepare_started_package() {
  end_manager();
  prepare_installed_packages();
  fs::remove(TQ_COM_SOCKET_PATH);
  tarvio_test::install_application("app");
  tarvio_test::forget_process_of("app");
  start_manager();
  start_application("app");
}

// The statuses, and how many of the applications run.
std::string state_of_manager() {
  const std::string statuses = ask(TQ_COM_SOCKET_PATH, "status_all\n");
  const auto started = static_cast<size_t>(std::count(statuses.begin(), statuses.end(), '\n') / 3);
  size_t running = 0;
  eventually([&] {
    running = tarvio_test::children_of(tarvio_test::keeper_of(manager)).size();
    return running == started;
  });
  return statuses + std::to_string(running) + " run\n";
}

std::string state_of_device_and_manager() { return state_of_device() + state_of_manager(); }

// A line of the system log from each of the applications, and one from neither.
void prepare_log() {
  clear_device();
  write_file("/var/log/messages",
             "Nov 22 06:34:58 board clock[12]: tick\n"
             "Nov 22 06:34:58 board other[13]: nothing\n"
             "Nov 22 06:34:59 board radio[14]: on the air\n");
}

void mount_memory(const char* directory) {
  fs::create_directories(directory);
  if (mount("memory", directory, "tmpfs", 0, "size=1g") != 0) throw std::runtime_error(directory);
}

constexpr char kRoom[] = "/run/faults/room";

// Once: partitions as the kernel shows them, and room for a backup.
// Not every sandbox may make device files of its own.
void add_device(const std::string& path) {
  fs::remove(path);
  fs::create_symlink("/dev/null", path);
}

void make_whole_device() {
  for (const char* const directory : {"/sys/class", kRoom}) mount_memory(directory);
  const char* const sizes[] = {"262144", "2097152", "2097152", "62914560", "67108864", "134217728"};
  for (int number = 1; number <= 6; ++number) {
    const std::string name = "mtd" + std::to_string(number);
    const std::string directory = "/sys/class/mtd/" + name;
    fs::create_directories(directory);
    write_file(directory + "/size", sizes[number - 1]);
    write_file(directory + "/erasesize", "131072");
    write_file(directory + "/bad_blocks", "0");
    add_device("/dev/" + name);
  }
  for (const char* const device : {"/dev/mtdblock4", "/dev/mtdblock5"}) add_device(device);
}

void prepare_whole_device() {
  prepare_stopped();
  write_file("/var/log/messages", "Nov 22 06:34:58 board user.info clock[12]: tick\n");
}

// The checks, each with whether it failed: what is not needed may be unknown.
std::string checks_in(const std::string& output) {
  std::istringstream lines(output);
  std::string checks;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(' ')) continue;
    checks += line.substr(0, line.find("  "));
    checks += line.find("  failed ") == std::string::npos ? "\n" : " failed\n";
  }
  return checks;
}

// Another application is installed, and one of those that run is removed.
void prepare_other_applications() {
  prepare_started_applications();
  tarvio_test::install_application("lamp");
  tarvio_test::forget_process_of("lamp");
  for (const char* const extension : {".control", ".tqcontrol", ".tqstartapp", ".tqstopapp"}) {
    fs::remove(tarvio_test::information_file("radio", extension));
  }
}

// Which application it was may not be known then.
std::string first_word(const std::string& output) { return output.substr(0, output.find(' ')); }

// Nor with the units of sizes: an application that is being executed has less memory, or none.
std::string without_figures(const std::string& output) {
  return std::regex_replace(output, std::regex("[0-9.]+ ([KM]iB|bytes)|[0-9 ]"), "");
}

Subject subject(const std::string& name, const std::vector<std::string>& words, void (*prepare)()) {
  return {.name = name,
          .program = client(words),
          .set_up = [] {},
          .prepare = prepare,
          .state = state_of_manager};
}

// What is printed has process numbers and times in it.
Subject varying(const std::string& name, const std::vector<std::string>& words, void (*prepare)()) {
  Subject made = subject(name, words, prepare);
  made.said = without_figures;
  return made;
}

Subject change(const std::string& name, const std::vector<std::string>& words, void (*prepare)()) {
  Subject made = subject(name, words, prepare);
  made.said = first_word;
  return made;
}

}  // namespace

std::vector<Subject> manager_subjects() {
  return {
      subject("status", {"status"}, prepare_started_applications),
      subject("status-json", {"status", "--json"}, prepare_started_applications),
      subject("status-name", {"status", "clock"}, prepare_started_applications),
      change("start", {"start", "clock"}, prepare_stopped),
      change("start-match", {"start", "--match", "clo"}, prepare_stopped),
      change("stop", {"stop", "clock"}, prepare_started_applications),
      subject("start-all", {"start-all"}, prepare_stopped),
      subject("stop-all", {"stop-all"}, prepare_started_applications),
      change("restart", {"restart", "clock"}, prepare_started_applications),
      subject("wait", {"wait", "clock", "--state", "running"}, prepare_started_applications),
      varying("is-running", {"is-running", "clock"}, prepare_started_applications),
      varying("status-wide", {"status", "--wide"}, prepare_started_applications),
      varying("status-wide-json", {"status", "--wide", "--json"}, prepare_started_applications),
      varying("metrics", {"metrics"}, prepare_started_applications),
      subject("refresh", {"refresh"}, prepare_other_applications),
      {.name = "doctor",
       .program = client({"doctor", kRoom, "--timeout", "300"}),
       .set_up = make_whole_device,
       .prepare = prepare_whole_device,
       .state = state_of_manager,
       .said = checks_in},
      {.name = "logs",
       .program = client({"logs", "clock"}),
       .set_up = [] {},
       .prepare = prepare_log,
       .state = [] { return std::string(); }},
      {.name = "remove-started",
       .program = client({"remove", "app"}),
       .set_up = save_packages,
       .prepare = prepare_started_package,
       .state = state_of_device_and_manager},
  };
}

}  // namespace faults
