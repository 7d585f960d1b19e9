// The resident manager, run as it ships.
#ifndef TARVIO_BENCH_SUPPORT_MANAGER_H
#define TARVIO_BENCH_SUPPORT_MANAGER_H

#include <sys/types.h>

namespace tarvio_bench {

// tarviod in a process of its own, with applications that all run; killed at the end of the scope,
// and the applications with it. Ends the process when it does not come so far.
class Manager {
 public:
  explicit Manager(int applications);
  ~Manager();
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  pid_t pid() const { return pid_; }

  // The number of its children, which are the applications.
  int running() const;

 private:
  pid_t pid_;
};

}  // namespace tarvio_bench

#endif
