#include "support/manager.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
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

}  // namespace

Manager::Manager(int applications, std::vector<std::string> tool) {
  // Without its applications to stop it ends at once.
  tool.insert(tool.end(), {BENCH_MANAGER, "--keep-applications"});
  pid_ = start(std::move(tool));
  wait_until_it_answers();
  tq_lib_start_all_app();
  check_statuses(applications);
  if (running() != applications) die("the applications do not run");
}

Manager::~Manager() {
  if (has_ended_) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void Manager::end() {
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
  has_ended_ = true;
}

int Manager::running() const {
  int count = 0;
  const std::string tasks = "/proc/" + std::to_string(pid_) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    std::ifstream children(task.path() / "children");
    for (pid_t child = 0; children >> child;) ++count;
  }
  return count;
}

}  // namespace tarvio_bench
