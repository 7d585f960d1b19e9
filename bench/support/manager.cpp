#include "support/manager.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

#include "support/say.h"
#include "tarvio/tarvio.h"

namespace tarvio_bench {
namespace {

pid_t start(std::vector<std::string> words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  const int error = posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) die(std::strerror(error));
  return pid;
}

// The socket is there a moment before it listens.
bool is_listening() {
  const int fd = tq_socket_create_unix_sock();
  const bool connected = access(TQ_COM_SOCKET_PATH, F_OK) == 0 &&
                         tq_socket_connect_unix_sock(fd, TQ_COM_SOCKET_PATH) == 0;
  (void)tq_socket_close(fd);
  return connected;
}

void wait_until_it_answers() {
  for (int tries = 0; tries < 1000; ++tries) {
    if (is_listening()) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  die("the manager does not start");
}

void check_statuses(int expected) {
  tq_list_t* list = tq_list_create();
  tq_lib_list_all_status(list);
  int started = 0;
  for (void* at = tq_list_first(list); at != nullptr; at = tq_list_next(list)) {
    const auto* status = static_cast<tq_status*>(at);
    if (status->id == TQ_STATE_NORMAL && std::strcmp(status->detail, "started app\n") == 0)
      ++started;
  }
  tq_status_list_free(list);
  if (started != expected) die("the manager does not report the expected statuses");
}

// The keeper that runs, as its ledger says.
pid_t find_keeper() {
  std::ifstream ledger("/run/tarvio/processes");
  for (std::string line; std::getline(ledger, line);) {
    pid_t pid = -1;
    if (std::sscanf(line.c_str(), "keeper %d ", &pid) == 1) return pid;
  }
  die("no keeper runs");
}

std::vector<pid_t> children_of(pid_t parent) {
  std::vector<pid_t> found;
  for (const auto& task :
       std::filesystem::directory_iterator("/proc/" + std::to_string(parent) + "/task")) {
    std::ifstream children(task.path() / "children");
    for (pid_t child = 0; children >> child;) found.push_back(child);
  }
  return found;
}

}  // namespace

Manager::Manager(int applications, std::vector<std::string> tool) {
  // Without its applications to stop it ends at once.
  tool.insert(tool.end(), {BENCH_MANAGER, "--keep-applications"});
  pid_ = start(std::move(tool));
  wait_until_it_answers();
  keeper_ = find_keeper();
  if (applications == 0) return;
  tq_lib_start_all_app();
  check_statuses(applications);
  if (running() != applications) die("the applications do not run");
}

Manager::~Manager() {
  if (!has_ended_) kill(pid_, SIGKILL);
  if (!has_ended_) waitpid(pid_, nullptr, 0);
  kill(keeper_, SIGKILL);
  // Else the next manager would start the applications again.
  std::filesystem::remove_all("/run/tarvio");
}

void Manager::end() {
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
  has_ended_ = true;
}

std::vector<pid_t> Manager::processes() const {
  std::vector<pid_t> all = {pid_, keeper_};
  for (const pid_t child : children_of(pid_))
    if (child != keeper_) all.push_back(child);
  return all;
}

int Manager::running() const { return static_cast<int>(children_of(keeper_).size()); }

std::string ask_manager(const char* word) {
  const int fd = tq_request_com(TQ_COM_SOCKET_PATH, word, 0, nullptr);
  std::string reply;
  char bytes[4096];
  for (ssize_t count = 0; (count = read(fd, bytes, sizeof bytes)) > 0;)
    reply.append(bytes, static_cast<size_t>(count));
  (void)close(fd);
  return reply;
}

}  // namespace tarvio_bench
