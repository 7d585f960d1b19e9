#include "faults/run.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

#include "support/files.h"

namespace faults {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using tarvio_test::read_file;

constexpr char kRecord[] = "/run/faults/record";
constexpr char kOutput[] = "/run/faults/output";
constexpr char kErrors[] = "/run/faults/errors";
constexpr std::chrono::seconds kGrace{1};  // for processes that were ended and are not gone yet

std::set<pid_t> kept;

// The record, shared with the program.
class SharedRecord {
 public:
  SharedRecord(const Fault& fault, bool is_watched) {
    const int fd = open(kRecord, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0 || ftruncate(fd, sizeof(fault_record)) != 0) throw std::runtime_error(kRecord);
    void* const map =
        mmap(nullptr, sizeof(fault_record), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (map == MAP_FAILED) throw std::runtime_error("mmap");
    record_ = static_cast<fault_record*>(map);
    record_->kind = fault.kind;
    record_->number = fault.number;
    record_->is_watched = is_watched ? 1 : 0;
    fault.process.copy(record_->path, FAULT_PATH - 1);
  }
  ~SharedRecord() { munmap(record_, sizeof *record_); }
  SharedRecord(const SharedRecord&) = delete;
  SharedRecord& operator=(const SharedRecord&) = delete;

  const fault_record& operator*() const { return *record_; }

 private:
  fault_record* record_;
};

void become_stream(const char* file, int flags, int stream) {
  dup2(open(file, flags | O_CLOEXEC, 0644), stream);
}

[[noreturn]] void become(const Program& program) {
  constexpr int kAppend = O_WRONLY | O_APPEND;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  signal(SIGHUP, SIG_DFL);  // the campaign itself may have been started by nohup
  become_stream("/dev/null", O_RDONLY, STDIN_FILENO);
  become_stream(kOutput, kAppend, STDOUT_FILENO);
  become_stream(kErrors, kAppend, STDERR_FILENO);
  setenv("TMPDIR", kTemporaryDirectory, 1);
  setenv("LD_PRELOAD", (TARVIO_FAULT_MODULE " " + program.also_loaded).c_str(), 1);
  setenv(FAULT_VARIABLE, kRecord, 1);
  std::vector<char*> arguments;
  for (const std::string& word : program.command)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  if (chdir(kWorkDirectory) == 0) execv(arguments[0], arguments.data());
  _exit(126);
}

bool ends_within(pid_t process, double seconds) {
  const auto fd = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
  if (fd < 0) throw std::runtime_error("pidfd_open");
  pollfd end = {fd, POLLIN, 0};
  const bool ends = poll(&end, 1, static_cast<int>(seconds * 1000)) == 1;
  close(fd);
  return ends;
}

std::string command_line_of(pid_t process) {
  std::string line = read_file("/proc/" + std::to_string(process) + "/cmdline");
  std::replace(line.begin(), line.end(), '\0', ' ');
  return line;
}

std::vector<pid_t> strangers() {
  std::vector<pid_t> processes = own_children();
  std::erase_if(processes, [](pid_t process) { return kept.contains(process); });
  return processes;
}

// Those that are about to end may.
std::vector<std::string> end_left_processes() {
  std::vector<std::string> left;
  const auto deadline = Clock::now() + kGrace;
  for (auto each = strangers(); !each.empty(); each = strangers()) {
    const std::chrono::duration<double> rest = deadline - Clock::now();
    if (!ends_within(each.front(), std::max(rest.count(), 0.0))) {
      left.push_back("process " + command_line_of(each.front()));
    }
    end_process(each.front());
  }
  return left;
}

// Those of a tool that was killed are its own.
void note_left_files(std::vector<std::string>& left) {
  for (const char* const directory : {kTemporaryDirectory, kWorkDirectory}) {
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
      const std::string name = entry.path().filename();
      if (name.starts_with("tarvio.") || name.starts_with(".tarvio")) left.push_back(entry.path());
    }
  }
  for (const std::string& path : left) fs::remove_all(path);
}

}  // namespace

std::vector<pid_t> own_children() {
  std::ifstream list("/proc/self/task/" + std::to_string(getpid()) + "/children");
  std::vector<pid_t> children;
  for (pid_t child; list >> child;) children.push_back(child);
  return children;
}

Program client(const std::vector<std::string>& words) {
  Program program = {.command = {TARVIO_CLIENT}};
  program.command.insert(program.command.end(), words.begin(), words.end());
  return program;
}

void keep_process(pid_t process) { kept.insert(process); }

void end_process(pid_t process) {
  kept.erase(process);
  kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
}

Run run_program(const Program& program, const Fault& fault, double seconds) {
  Run run;
  const SharedRecord record(fault, program.is_watched);
  for (const char* const file : {kOutput, kErrors}) tarvio_test::write_file(file, "");
  const pid_t process = fork();
  if (process < 0) throw std::runtime_error("fork");
  if (process == 0) become(program);
  keep_process(process);
  if (program.use) program.use(process);
  const auto start = Clock::now();
  run.is_late = !ends_within(process, seconds);
  run.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (run.is_late) kill(process, SIGKILL);
  int status = 0;
  waitpid(process, &status, 0);
  kept.erase(process);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.signal = WIFSIGNALED(status) && !run.is_late ? WTERMSIG(status) : 0;
  note_left_files(run.left);
  for (const std::string& each : end_left_processes()) run.left.push_back(each);
  run.output = read_file(kOutput);
  run.errors = read_file(kErrors);
  run.record = *record;
  return run;
}

}  // namespace faults
