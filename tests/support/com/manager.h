// The resident manager's side of a test: its start-up with applications of the test's own, in this
// process or in one of its own.
#ifndef TARVIO_TESTS_SUPPORT_COM_MANAGER_H
#define TARVIO_TESTS_SUPPORT_COM_MANAGER_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "support/com/sockets.h"
#include "tarvio/app.h"

namespace tarvio_test {

struct Application {
  std::string name;
  std::string start_file = "/bin/true";
};

// Sets the status manager, the package manager and the application manager up. The applications are
// those that the package listing would find, in this order; nothing is read from the disk.
void set_managers_up(const std::vector<Application>& applications);

// A manager that answers on TQ_COM_SOCKET_PATH, in a process of its own that ends with the scope.
class ManagerProcess {
 public:
  // prepare runs in that process, after the managers are set up and before the com manager is.
  explicit ManagerProcess(
      const std::vector<Application>& applications, const std::function<void()>& prepare = [] {});
  ~ManagerProcess();
  ManagerProcess(const ManagerProcess&) = delete;
  ManagerProcess& operator=(const ManagerProcess&) = delete;

  pid_t pid() const { return pid_; }
  // What the library has allocated there since the com manager was set up and not freed. The
  // request that was answered last may not have ended yet, so ask after a further one.
  long live_allocations() const;
  // Whether all its threads do: for a connection, or for a question of ours.
  bool is_waiting() const;
  // Processor time so far.
  double cpu_seconds() const;

 private:
  pid_t pid_ = -1;
  Socket control_;
};

}  // namespace tarvio_test

#endif
