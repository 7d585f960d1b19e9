// A fleet on one machine: a real broker with the packaged settings, TLS and a certificate for each
// board, and boards that speak as the agent does.

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "base/owners.h"
#include "fleet/broker_server.h"
#include "fleet/crowd.h"
#include "fleet/operator_tool.h"
#include "fleet/simulated_board.h"
#include "observer.h"
#include "support/figures.h"
#include "support/processes.h"
#include "support/say.h"

namespace {

using fleet_tool::Observer;
using tarvio::Deadline;
using tarvio_bench::BoardRecord;
using tarvio_bench::BrokerServer;
using tarvio_bench::Certificates;
using tarvio_bench::cpu_seconds_of;
using tarvio_bench::Crowd;
using tarvio_bench::die;
using tarvio_bench::now_ns;
using tarvio_bench::OperatorTool;
using tarvio_bench::text_of;

constexpr int kMaxBoards = 99'999;  // by the digits of their names
// What the broker opens besides the connections of boards, and what a process of boards opens.
constexpr rlim_t kOtherFiles = 100;
constexpr rlim_t kFilesOfBoards = 2000;
constexpr int64_t kSecondNs = 1'000'000'000;

// Of the measurements.
constexpr int kChanges = 1000;
constexpr int kBetweenChangesMs = 65;  // so that the broker saves what it keeps meanwhile
constexpr int kIdleSeconds = 110;      // in which three would be more than one a minute

// Of the figures.
constexpr double kMaxChangeP50Ms = 50;
constexpr double kMaxChangeP99Ms = 500;
constexpr double kMaxReconnectSeconds = 60;
constexpr size_t kMaxPartInASecond = 10;  // a tenth of all boards, and
constexpr size_t kCalm = 50;              // however few boards there are
constexpr double kMaxToolSeconds = 5;
constexpr double kMaxConnectMs = 5;
constexpr double kMaxBrokerKib = 64;
constexpr uint64_t kMaxIdlePackets = 2;

int boards_in(int argc, char** argv) {
  char* end = nullptr;
  const long boards = argc == 2 ? std::strtol(argv[1], &end, 10) : 0;
  if (end == nullptr || *end != '\0' || boards < 1 || boards > kMaxBoards) {
    die("say how many boards: 1 to " + std::to_string(kMaxBoards));
  }
  return static_cast<int>(boards);
}

// A network of its own, with all ports.
void enter_own_network() {
  const auto refuse = [](const char* what) {
    die(std::string(what) + ": " + std::strerror(errno) + "; run it by bench/fleet/run");
  };
  if (unshare(CLONE_NEWNET) != 0) refuse("cannot have a network of its own");
  const tarvio::Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request = {};
  std::memcpy(request.ifr_name, "lo", sizeof "lo");
  request.ifr_flags = IFF_UP;
  if (ioctl(fd.get(), SIOCSIFFLAGS, &request) != 0) refuse("cannot start the loopback");
}

// Ends the program when this machine does not allow so many connections.
void make_room_for(int boards) {
  rlimit limit = {};
  (void)getrlimit(RLIMIT_NOFILE, &limit);
  const auto count = static_cast<rlim_t>(boards);
  const rlim_t needed = std::max(count + kOtherFiles, kFilesOfBoards);
  if (needed > limit.rlim_max) {
    die(std::to_string(boards) + " boards need " + std::to_string(needed) +
        " open files in one process, and this machine allows " + std::to_string(limit.rlim_max) +
        " (ulimit -Hn): raise that, or take fewer boards");
  }
  limit.rlim_cur = limit.rlim_max;
  (void)setrlimit(RLIMIT_NOFILE, &limit);
  long first = 0;
  long last = 0;
  std::ifstream("/proc/sys/net/ipv4/ip_local_port_range") >> first >> last;
  if (boards > last - first) {
    die(std::to_string(boards) + " boards need as many ports, and this machine gives out " +
        std::to_string(last - first) + " (net.ipv4.ip_local_port_range): take fewer boards");
  }
}

void say(const std::string& what) { (void)std::fprintf(stderr, "%s\n", what.c_str()); }

struct Fleet {
  const Certificates& certificates;
  BrokerServer& broker;
  const Crowd& crowd;

  [[nodiscard]] size_t boards() const { return crowd.records().size(); }
  [[nodiscard]] Observer observer() const {
    return {{.broker = certificates.broker_of_operator(), .operator_name = tarvio_bench::kOperator},
            kMaxReconnectSeconds};
  }
};

// The most boards that begin to connect within any second.
size_t most_in_a_second(const Crowd& crowd) {
  std::vector<int64_t> times;
  for (const BoardRecord& record : crowd.records()) times.push_back(record.tried_ns);
  std::sort(times.begin(), times.end());
  size_t most = 0;
  for (size_t first = 0, next = 0; first < times.size(); ++first) {
    while (next < times.size() && times[next] < times[first] + kSecondNs) ++next;
    most = std::max(most, next - first);
  }
  return most;
}

bool report_connections(const char* when, size_t boards, double broker_cpu_seconds) {
  const double ms = broker_cpu_seconds * 1e3 / static_cast<double>(boards);
  return tarvio_bench::report(text_of("broker: processor time of a connection, %s", when),
                              text_of("%.0f ms", kMaxConnectMs), text_of("%.2f ms", ms),
                              ms <= kMaxConnectMs);
}

bool measure_memory(const Fleet& fleet, long empty_kib) {
  const long full_kib = tarvio_bench::memory_of({fleet.broker.pid()}).kib;
  const double kib =
      static_cast<double>(full_kib - empty_kib) / static_cast<double>(fleet.boards());
  return tarvio_bench::report("broker: memory of a board", text_of("%.0f KiB", kMaxBrokerKib),
                              text_of("%.1f KiB, %ld MiB in all", kib, full_kib / 1024),
                              kib <= kMaxBrokerKib);
}

bool report_view(const Fleet& fleet, const char* when) {
  const int64_t begin_ns = now_ns();
  const Observer observer = fleet.observer();
  const double seconds = static_cast<double>(now_ns() - begin_ns) * 1e-9;
  const auto online = std::count_if(observer.boards().begin(), observer.boards().end(),
                                    [](const auto& board) { return board.second.is_online; });
  const bool is_whole = static_cast<size_t>(online) == fleet.boards();
  return tarvio_bench::report(text_of("operator sees all boards, %s", when),
                              text_of("%.0f s, all", kMaxToolSeconds),
                              text_of("%.2f s, %ld online", seconds, static_cast<long>(online)),
                              is_whole && seconds <= kMaxToolSeconds);
}

// How long it takes from the board's publishing until the operator has it.
double change_ms(const Fleet& fleet, Observer& observer, int number) {
  const std::string name = tarvio_bench::board_name(number);
  const BoardRecord& record = fleet.crowd.records()[static_cast<size_t>(number)];
  fleet.crowd.change(number);
  const auto has_come = [&] {
    return observer.boards().at(name).apps[0]["starts"] == record.changes.load() + 1;
  };
  const Deadline until = Deadline::after_seconds(kMaxReconnectSeconds);
  while (!has_come()) {
    if (!observer.wait(until)) die("a change of " + name + " does not reach the operator");
  }
  const double ms = static_cast<double>(now_ns() - record.changed_ns) * 1e-6;
  const Deadline pause = Deadline::after(kBetweenChangesMs);
  while (!pause.passed()) (void)observer.wait(pause);
  return ms;
}

bool measure_changes(const Fleet& fleet) {
  Observer observer = fleet.observer();
  std::mt19937 random{std::random_device()()};
  std::uniform_int_distribution<int> any(0, static_cast<int>(fleet.boards()) - 1);
  std::vector<double> ms;
  ms.reserve(kChanges);
  for (int count = 0; count < kChanges; ++count) {
    ms.push_back(change_ms(fleet, observer, any(random)));
  }
  std::sort(ms.begin(), ms.end());
  const double p50 = ms[ms.size() / 2];
  const double p99 = ms[ms.size() * 99 / 100];
  const bool p50_holds = tarvio_bench::report(
      text_of("change of a board to the operator, p50 of %d", kChanges),
      text_of("%.0f ms", kMaxChangeP50Ms), text_of("%.2f ms", p50), p50 <= kMaxChangeP50Ms);
  const bool p99_holds = tarvio_bench::report("the same, p99", text_of("%.0f ms", kMaxChangeP99Ms),
                                              text_of("%.2f ms, longest %.1f ms", p99, ms.back()),
                                              p99 <= kMaxChangeP99Ms);
  return p50_holds && p99_holds;
}

// The time is that of everybody: the boards, which answer at once, have the same processors.
bool measure_tool(const Fleet& fleet, const OperatorTool& tool, const std::string& title,
                  const std::vector<std::string>& words) {
  const double broker_before = cpu_seconds_of(fleet.broker.pid());
  const double boards_before = fleet.crowd.cpu_seconds();
  const OperatorTool::Run run = tool.run(words);
  const double broker_cpu = cpu_seconds_of(fleet.broker.pid()) - broker_before;
  const double boards_cpu = fleet.crowd.cpu_seconds() - boards_before;
  return tarvio_bench::report(title, text_of("%.0f s", kMaxToolSeconds),
                              text_of("%.2f s; processor time %.2f s, broker %.2f s, boards %.2f s",
                                      run.seconds, run.cpu_seconds, broker_cpu, boards_cpu),
                              run.seconds <= kMaxToolSeconds);
}

bool measure_tools(const Fleet& fleet, const std::filesystem::path& directory) {
  const OperatorTool tool(directory, fleet.certificates.broker_of_operator());
  const std::string package = directory / "clock.ipk";
  std::ofstream(package) << "what the boards would install";
  const bool devices = measure_tool(fleet, tool, "tarvio-fleet devices", {"devices"});
  const bool restart =
      measure_tool(fleet, tool, "tarvio-fleet restart", {"restart", "app-0", "--to", "*"});
  const bool rollout =
      measure_tool(fleet, tool, "tarvio-fleet rollout, three waves",
                   {"rollout", "https://127.0.0.1/clock.ipk", "--file", package, "--to", "*"});
  return devices && restart && rollout;
}

struct Traffic {
  uint64_t sent_packets;
  uint64_t sent_bytes;
  uint64_t received_bytes;
};

std::vector<Traffic> traffic_of(const Crowd& crowd) {
  crowd.count_traffic();
  std::vector<Traffic> traffic;
  for (const BoardRecord& record : crowd.records()) {
    traffic.push_back({record.sent_packets, record.sent_bytes, record.received_bytes});
  }
  return traffic;
}

bool measure_idleness(const Fleet& fleet) {
  const std::vector<Traffic> before = traffic_of(fleet.crowd);
  const double broker_before = cpu_seconds_of(fleet.broker.pid());
  std::this_thread::sleep_for(std::chrono::seconds(kIdleSeconds));
  const double broker_cpu = cpu_seconds_of(fleet.broker.pid()) - broker_before;
  const std::vector<Traffic> after = traffic_of(fleet.crowd);
  uint64_t most_packets = 0;
  uint64_t sent_bytes = 0;
  uint64_t received_bytes = 0;
  for (size_t at = 0; at < before.size(); ++at) {
    most_packets = std::max(most_packets, after[at].sent_packets - before[at].sent_packets);
    sent_bytes += after[at].sent_bytes - before[at].sent_bytes;
    received_bytes += after[at].received_bytes - before[at].received_bytes;
  }
  return tarvio_bench::report(
      text_of("most packets of an idle board in %d s", kIdleSeconds),
      text_of("%lu", static_cast<unsigned long>(kMaxIdlePackets)),
      text_of("%lu; on average %lu bytes out, %lu in; broker %.1f %% of a core",
              static_cast<unsigned long>(most_packets),
              static_cast<unsigned long>(sent_bytes / fleet.boards()),
              static_cast<unsigned long>(received_bytes / fleet.boards()),
              broker_cpu * 100 / kIdleSeconds),
      most_packets <= kMaxIdlePackets);
}

bool measure_reconnection(Fleet& fleet) {
  const int64_t begin_ns = now_ns();
  fleet.broker.kill_and_start();
  fleet.crowd.wait_until_settled(begin_ns);
  int64_t end_ns = 0;
  unsigned failed_tries = 0;
  for (const BoardRecord& record : fleet.crowd.records()) {
    end_ns = std::max(end_ns, record.settled_ns.load());
    failed_tries += record.failed_tries;
  }
  const double seconds = static_cast<double>(end_ns - begin_ns) * 1e-9;
  const bool returned = tarvio_bench::report(
      "all boards are back after the broker is killed", text_of("%.0f s", kMaxReconnectSeconds),
      text_of("%.1f s, %u failed tries", seconds, failed_tries), seconds <= kMaxReconnectSeconds);
  const size_t most = most_in_a_second(fleet.crowd);
  const size_t limit = std::max(fleet.boards() / kMaxPartInASecond, kCalm);
  const bool is_calm = tarvio_bench::report("most connections in a second", text_of("%zu", limit),
                                            text_of("%zu", most), most <= limit);
  const bool is_cheap =
      report_connections("back", fleet.boards(), cpu_seconds_of(fleet.broker.pid()));
  return returned && is_calm && is_cheap;
}

int run(int boards) {
  const std::filesystem::path directory = std::filesystem::temp_directory_path() / "fleet";
  say("makes the certificates of " + std::to_string(boards) + " boards");
  const Certificates certificates(directory / "certificates", boards);
  BrokerServer broker(directory / "broker", certificates);
  const long empty_kib = tarvio_bench::memory_of({broker.pid()}).kib;
  say("the boards connect");
  const Crowd crowd(boards, [&](int number) { return certificates.broker_of_board(number); });
  crowd.wait_until_settled();
  Fleet fleet = {.certificates = certificates, .broker = broker, .crowd = crowd};
  bool holds = report_connections("first", fleet.boards(), cpu_seconds_of(broker.pid()));
  holds = measure_memory(fleet, empty_kib) && holds;
  holds = report_view(fleet, "connected") && holds;
  say("applications of boards change");
  holds = measure_changes(fleet) && holds;
  say("the boards are idle");
  holds = measure_idleness(fleet) && holds;
  say("the operator lists the boards, restarts an application and rolls a package out");
  holds = measure_tools(fleet, directory / "operator") && holds;
  say("the broker is killed, and starts again");
  holds = measure_reconnection(fleet) && holds;
  holds = report_view(fleet, "back") && holds;
  return holds ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  const int boards = boards_in(argc, argv);
  enter_own_network();
  make_room_for(boards);
  try {
    return run(boards);
  } catch (const std::exception& error) {
    die(error.what());
  }
}
