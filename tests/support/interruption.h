// Signals that come while the library waits for what a command prints.
#ifndef TARVIO_TESTS_SUPPORT_INTERRUPTION_H
#define TARVIO_TESTS_SUPPORT_INTERRUPTION_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace tarvio_test {

// SIGUSR1 interrupts the system calls of this process while this lives.
class Interruption {
 public:
  Interruption() {
    struct sigaction action = {};
    action.sa_handler = [](int) { count = count + 1; };  // without SA_RESTART
    if (::sigaction(SIGUSR1, &action, &before_) != 0) ADD_FAILURE() << "cannot handle SIGUSR1";
    count = 0;
  }
  ~Interruption() { ::sigaction(SIGUSR1, &before_, nullptr); }
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  // Shell commands that send the signal once this process sleeps, in a read of what they print, and
  // wait until the read has failed: it would still return what is printed before.
  static std::string commands() {
    const std::string pid = std::to_string(::getpid());
    const auto until = [&pid](const char* line) {
      return std::string("until grep -q '^") + line + "' /proc/" + pid + "/status; do :; done; ";
    };
    return until("State:.S") + "kill -USR1 " + pid + "; " + until("ShdPnd:.0*$");
  }

  static inline volatile std::sig_atomic_t count = 0;

 private:
  struct sigaction before_ = {};
};

}  // namespace tarvio_test

#endif
