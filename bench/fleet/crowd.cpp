#include "fleet/crowd.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <ctime>
#include <exception>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>

#include "base/pipe.h"
#include "support/say.h"

namespace tarvio_bench {

namespace {

using tarvio::Deadline;

// Each wait looks at all boards of a process: with 500 that took most of the machine's time.
constexpr int kBoardsInProcess = 50;
constexpr int kComeWithinMs = 30'000;
constexpr std::chrono::minutes kPatience(5);
constexpr int kCountTraffic = -1;  // else the number of a board to change

struct Member {
  int number;
  Deadline comes;
  std::unique_ptr<SimulatedBoard> board = nullptr;  // until it comes, none
};

class BoardProcess {
 public:
  BoardProcess(int first, std::span<BoardRecord> records,
               const std::function<fleet::Broker(int)>& broker_of, tarvio::Fd commands)
      : first_(first), records_(records), broker_of_(broker_of), commands_(std::move(commands)) {
    std::mt19937 random{std::random_device()()};
    std::uniform_int_distribution<int> ms(0, kComeWithinMs);
    for (int number = first; number < first + static_cast<int>(records.size()); ++number) {
      members_.push_back({.number = number, .comes = Deadline::after(ms(random))});
    }
  }

  [[noreturn]] void run() {
    std::vector<pollfd> files(members_.size() + 1);
    for (;;) {
      Deadline due = Deadline::never();
      for (size_t at = 0; at < members_.size(); ++at) {
        const Member& member = members_[at];
        due = Deadline::sooner(due, member.board ? member.board->due() : member.comes);
        files[at] = {.fd = member.board ? member.board->fd() : -1,
                     .events = member.board ? member.board->events() : short{0},
                     .revents = 0};
      }
      files.back() = {.fd = commands_.get(), .events = POLLIN, .revents = 0};
      if (poll(files.data(), files.size(), due.remaining_ms()) < 0) continue;
      for (size_t at = 0; at < members_.size(); ++at) step(members_[at], files[at].revents);
      if (files.back().revents != 0) take_command();
    }
  }

 private:
  void step(Member& member, short happened) {
    if (member.board == nullptr && member.comes.passed()) {
      member.board = std::make_unique<SimulatedBoard>(member.number, broker_of_(member.number),
                                                      record_of(member.number));
    }
    if (member.board != nullptr && (happened != 0 || member.board->due().passed())) {
      member.board->step(happened);
    }
  }

  void take_command() {
    int command = 0;
    if (tarvio::retried([&] { return read(commands_.get(), &command, sizeof command); }) !=
        sizeof command) {
      _exit(EXIT_SUCCESS);
    }
    if (command == kCountTraffic) {
      for (const Member& member : members_) member.board->count_traffic();
    } else {
      members_[static_cast<size_t>(command - first_)].board->change();
    }
    if (write(commands_.get(), &command, sizeof command) != sizeof command) _exit(EXIT_SUCCESS);
  }

  BoardRecord& record_of(int number) { return records_[static_cast<size_t>(number - first_)]; }

  const int first_;
  const std::span<BoardRecord> records_;
  const std::function<fleet::Broker(int)>& broker_of_;
  const tarvio::Fd commands_;
  std::vector<Member> members_;
};

[[noreturn]] void run_boards(int first, std::span<BoardRecord> records,
                             const std::function<fleet::Broker(int)>& broker_of,
                             tarvio::Fd commands) {
  (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
  (void)std::signal(SIGPIPE, SIG_IGN);
  try {
    BoardProcess(first, records, broker_of, std::move(commands)).run();
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "bench: a board ends: %s\n", error.what());
  }
  _exit(EXIT_FAILURE);
}

std::span<BoardRecord> shared_records(int boards) {
  const auto count = static_cast<size_t>(boards);
  // Zeroes, which is what they begin with.
  void* const memory = mmap(nullptr, count * sizeof(BoardRecord), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) die("cannot share memory with the boards");
  return {static_cast<BoardRecord*>(memory), count};
}

}  // namespace

double cpu_seconds_of(pid_t pid) {
  clockid_t clock = 0;
  timespec time = {};
  if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &time) != 0) {
    die("process " + std::to_string(pid) + " has ended");
  }
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

Crowd::Crowd(int boards, const std::function<fleet::Broker(int)>& broker_of)
    : records_(shared_records(boards)) {
  for (int first = 0; first < boards; first += kBoardsInProcess) {
    const auto count = static_cast<size_t>(std::min(kBoardsInProcess, boards - first));
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
      die("cannot start processes of boards");
    }
    tarvio::Fd ours(ends[0]);
    tarvio::Fd theirs(ends[1]);
    const pid_t pid = fork();
    if (pid < 0) die("cannot start processes of boards");
    if (pid == 0) {
      processes_.clear();
      ours.reset();
      run_boards(first, records_.subspan(static_cast<size_t>(first), count), broker_of,
                 std::move(theirs));
    }
    processes_.push_back({.pid = pid, .commands = std::move(ours)});
  }
}

Crowd::~Crowd() {
  for (const Process& process : processes_) {
    (void)kill(process.pid, SIGKILL);
    (void)waitpid(process.pid, nullptr, 0);
  }
  (void)munmap(records_.data(), records_.size_bytes());
}

void Crowd::wait_until_settled(int64_t since_ns) const {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  const auto is_settled = [&](const BoardRecord& record) { return record.settled_ns > since_ns; };
  while (!std::all_of(records_.begin(), records_.end(), is_settled)) {
    if (std::chrono::steady_clock::now() > end) {
      die(std::to_string(std::count_if(records_.begin(), records_.end(), is_settled)) + " of " +
          std::to_string(records_.size()) + " boards are connected after five minutes");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

void Crowd::order(int number, int command) const {
  const tarvio::Fd& socket = processes_[static_cast<size_t>(number / kBoardsInProcess)].commands;
  int answer = 0;
  if (write(socket.get(), &command, sizeof command) != sizeof command ||
      read(socket.get(), &answer, sizeof answer) != sizeof answer) {
    die("a process of boards has ended");
  }
}

void Crowd::change(int number) const { order(number, number); }

void Crowd::count_traffic() const {
  for (size_t at = 0; at < records_.size(); at += kBoardsInProcess) {
    order(static_cast<int>(at), kCountTraffic);
  }
}

double Crowd::cpu_seconds() const {
  double seconds = 0;
  for (const Process& process : processes_) seconds += cpu_seconds_of(process.pid);
  return seconds;
}

}  // namespace tarvio_bench
