// The resident manager, run as it ships.
#ifndef TARVIO_BENCH_SUPPORT_MANAGER_H
#define TARVIO_BENCH_SUPPORT_MANAGER_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace tarvio_bench {

// tarviod in a process of its own, with the installed applications, which all run; killed at the
// end of the scope, and the applications with it. Ends the program when they cannot be started.
class Manager {
 public:
  // `tool` is the beginning of a command line that runs the manager, such as {"valgrind", "-q"}.
  explicit Manager(int applications, std::vector<std::string> tool = {});
  ~Manager();
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  pid_t pid() const { return pid_; }

  // Lets it end by itself, and waits for that.
  void end();

  // The number of its children, which are the applications.
  int running() const;

 private:
  pid_t pid_;
  bool has_ended_ = false;
};

}  // namespace tarvio_bench

#endif
