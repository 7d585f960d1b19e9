#include "fleet/operator_tool.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <utility>

#include "fleet/simulated_board.h"
#include "support/say.h"

namespace tarvio_bench {

namespace {

double seconds_of(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

[[noreturn]] void become_tool(std::vector<std::string> words, const std::string& output) {
  const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  (void)dup2(file, STDOUT_FILENO);
  (void)dup2(file, STDERR_FILENO);
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  (void)execv(arguments.front(), arguments.data());
  _exit(127);
}

}  // namespace

OperatorTool::OperatorTool(std::filesystem::path directory, const fleet::Broker& broker)
    : directory_(std::move(directory)) {
  std::filesystem::create_directories(directory_);
  std::ofstream(directory_ / "fleet.conf")
      << "broker: " << broker.name() << "\nca_file: " << broker.ca_file
      << "\ncertificate: " << broker.certificate << "\nkey: " << broker.key
      << "\noperator: operator\n";
  (void)setenv("XDG_STATE_HOME", directory_.c_str(), 1);
}

OperatorTool::Run OperatorTool::run(const std::vector<std::string>& words) const {
  std::vector<std::string> line = {BENCH_FLEET_TOOL};
  line.insert(line.end(), words.begin(), words.end());
  line.insert(line.end(), {"--config", directory_ / "fleet.conf"});
  const std::string output = directory_ / "output";
  const int64_t begin_ns = now_ns();
  const pid_t pid = fork();
  if (pid < 0) die("cannot start tarvio-fleet");
  if (pid == 0) become_tool(line, output);
  int status = 0;
  rusage usage = {};
  if (wait4(pid, &status, 0, &usage) != pid) die("cannot wait for tarvio-fleet");
  std::ifstream stream(output);
  Run run = {.seconds = static_cast<double>(now_ns() - begin_ns) * 1e-9,
             .cpu_seconds = seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime),
             .output = {std::istreambuf_iterator<char>(stream), {}}};
  if (status != 0) {
    constexpr size_t kShown = 2000;
    die("tarvio-fleet " + words.front() + " fails:\n" +
        run.output.substr(run.output.size() - std::min(run.output.size(), kShown)));
  }
  return run;
}

}  // namespace tarvio_bench
