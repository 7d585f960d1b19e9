// The resident manager, run as it ships.
#ifndef TARVIO_BENCH_SUPPORT_MANAGER_H
#define TARVIO_BENCH_SUPPORT_MANAGER_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace tarvio_bench {

// tarviod in a process of its own, with the installed applications, which all run; killed at the
// end of the scope, and its keeper and the applications with it. Ends the program when they cannot
// be started.
class Manager {
 public:
  // With 0 applications none is started.
  // `tool` is the beginning of a command line that runs the manager, such as {"valgrind", "-q"}.
  explicit Manager(int applications, std::vector<std::string> tool = {});
  ~Manager();
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  pid_t pid() const { return pid_; }
  // The manager itself, its keeper, and its log reader if it watches a log.
  std::vector<pid_t> processes() const;

  // Lets it end by itself, and waits for that.
  void end();

  // The number of its keeper's children, which are the applications.
  int running() const;

 private:
  pid_t pid_;
  pid_t keeper_ = -1;
  bool has_ended_ = false;
};

// What the running manager answers to a word.
std::string ask_manager(const char* word);

}  // namespace tarvio_bench

#endif
