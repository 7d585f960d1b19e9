#include "support/com/manager.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "support/files.h"
#include "support/hooks/live_allocations.h"
#include "tarvio/tarvio.h"

namespace tarvio_test {
namespace {

const std::vector<Application>* listed = nullptr;

int list_applications(uint32_t, uint32_t, const char*, tq_package_info** out) {
  *out = nullptr;
  tq_package_info** end = out;
  for (const Application& application : *listed) {
    auto* package = static_cast<tq_package_info*>(std::calloc(1, sizeof(tq_package_info)));
    package->name = ::strdup(application.name.c_str());
    package->version = ::strdup("1.0");
    package->type = TQ_CATEGORY_APPLICATION;
    package->maintainer = ::strdup("");
    package->start_app = ::strdup(application.start_file.c_str());
    package->stop_app = ::strdup("");
    *end = package;
    end = &package->next;
  }
  return 0;
}

[[noreturn]] void run_manager(const std::vector<Application>& applications,
                              const std::function<void()>& prepare, const Socket& control) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  set_managers_up(applications);
  prepare();
  const LiveAllocations live;
  if (::tq_setup_com_manager() != 0) ::_exit(1);
  for (char asked = '\0'; ::write(control.fd(), &asked, 1) == 1;) {
    if (::read(control.fd(), &asked, 1) != 1) break;
    const long count = live.count();
    if (::write(control.fd(), &count, sizeof count) != sizeof count) break;
  }
  ::_exit(0);
}

}  // namespace

void set_managers_up(const std::vector<Application>& applications) {
  ::tq_setup_status_manager();
  ::tq_setup_package_manager();
  auto* const real = ::tq_tbx_package_binding->list;
  listed = &applications;
  ::tq_tbx_package_binding->list = list_applications;
  EXPECT_EQ(::tq_setup_app_manager(), 1);
  ::tq_tbx_package_binding->list = real;
  listed = nullptr;
}

ManagerProcess::ManagerProcess(const std::vector<Application>& applications,
                               const std::function<void()>& prepare) {
  auto [ours, theirs] = socket_pair();
  ::signal(SIGCHLD, SIG_DFL);  // as it was, should managers have been set up in this process
  pid_ = ::fork();
  if (pid_ == 0) {
    ours.close();
    run_manager(applications, prepare, theirs);
  }
  control_ = std::move(ours);
  theirs.close();
  char ready = '\0';
  if (::read(control_.fd(), &ready, 1) != 1) ADD_FAILURE() << "the manager does not start";
}

ManagerProcess::~ManagerProcess() {
  if (::kill(pid_, SIGKILL) != 0) ADD_FAILURE() << "the manager is gone";
  int status = 0;
  ::waitpid(pid_, &status, 0);
  if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL)
    ADD_FAILURE() << "the manager ended early, with status " << status;
}

long ManagerProcess::live_allocations() const {
  long count = -1;
  char asked = '?';
  if (::write(control_.fd(), &asked, 1) != 1 ||
      ::read(control_.fd(), &count, sizeof count) != sizeof count ||
      ::read(control_.fd(), &asked, 1) != 1) {
    ADD_FAILURE() << "the manager does not report its allocations";
  }
  return count;
}

bool ManagerProcess::is_waiting() const {
  const auto threads =
      std::filesystem::directory_iterator("/proc/" + std::to_string(pid_) + "/task");
  return std::all_of(begin(threads), end(threads), [](const auto& thread) {
    const std::string stat = read_file(thread.path() / "stat");
    return stat.find(") S ") != std::string::npos;
  });
}

double ManagerProcess::cpu_seconds() const {
  clockid_t clock = 0;
  timespec time = {};
  if (::clock_getcpuclockid(pid_, &clock) != 0 || ::clock_gettime(clock, &time) != 0)
    ADD_FAILURE() << "the manager's processor time is not known";
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace tarvio_test
