// The client, as it keeps running, and what it has printed so far.
#ifndef TARVIO_TESTS_SUPPORT_PROGRAMS_FOLLOWING_H
#define TARVIO_TESTS_SUPPORT_PROGRAMS_FOLLOWING_H

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "support/children.h"

namespace tarvio_test {

class Following {
 public:
  explicit Following(const std::vector<std::string>& line) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    output_ = ends[0];
    client_ = ::fork();
    if (client_ == 0) {
      ::dup2(ends[1], STDOUT_FILENO);
      std::vector<char*> argv = {const_cast<char*>("tarvio")};
      for (const std::string& word : line) argv.push_back(const_cast<char*>(word.c_str()));
      argv.push_back(nullptr);
      ::execv(TARVIO_CLIENT, argv.data());
      ::_exit(126);
    }
    ::close(ends[1]);
  }
  ~Following() {
    ::kill(client_, SIGTERM);
    ::waitpid(client_, nullptr, 0);
    ::close(output_);
  }
  Following(const Following&) = delete;
  Following& operator=(const Following&) = delete;

  std::string next_line() const {
    std::string line;
    for (char byte = '\0'; byte != '\n'; line += byte) {
      pollfd ready = {.fd = output_, .events = POLLIN, .revents = 0};
      if (::poll(&ready, 1, static_cast<int>(kPatience.count())) != 1 ||
          ::read(output_, &byte, 1) != 1) {
        ADD_FAILURE() << "no whole line came, only: " << line;
        break;
      }
    }
    return line;
  }

 private:
  int output_ = -1;
  pid_t client_ = -1;
};

}  // namespace tarvio_test

#endif
