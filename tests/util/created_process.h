// A process that tq_create_process makes, with all that the call gives.
#ifndef TARVIO_TESTS_UTIL_CREATED_PROCESS_H
#define TARVIO_TESTS_UTIL_CREATED_PROCESS_H

#include <string>

#include "tarvio/process.h"

namespace tarvio_test {

constexpr int kUnwritten = -7;
constexpr unsigned kAllPipes = TQ_PIPE_STDIN | TQ_PIPE_STDOUT | TQ_PIPE_STDERR;

struct Child {
  int result = kUnwritten;
  int pid = kUnwritten;
  int in = kUnwritten;
  int out = kUnwritten;
  int err = kUnwritten;
};

inline Child start(const std::string& command, unsigned flags) {
  Child child;
  child.result =
      tq_create_process(command.c_str(), flags, &child.pid, &child.in, &child.out, &child.err);
  return child;
}

}  // namespace tarvio_test

#endif
