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

#include "support/installed.h"
#include "support/say.h"
#include "tarvio/tarvio.h"

namespace tarvio_bench {
namespace {

pid_t start_manager() {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  char program[] = BENCH_MANAGER;
  char* arguments[] = {program, nullptr};
  pid_t pid = -1;
  const int error = posix_spawn(&pid, program, &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) die(std::strerror(error));
  return pid;
}

void wait_until_it_answers() {
  for (int tries = 0; tries < 1000; ++tries) {
    if (access(TQ_COM_SOCKET_PATH, F_OK) == 0) return;
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
  if (started != expected) die("the manager does not tell the statuses that it should");
}

}  // namespace

Manager::Manager(int applications) {
  install_applications(applications);
  pid_ = start_manager();
  wait_until_it_answers();
  tq_lib_start_all_app();
  check_statuses(applications);
  if (running() != applications) die("the applications do not run");
}

Manager::~Manager() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
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
