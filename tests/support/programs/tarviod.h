// The resident manager as a program: a tarviod of a test's own, controlled by signals and over its
// socket.
//
//   install_application("clock", kRuns, kEndsIt);
//   Tarviod manager;
//   ASSERT_TRUE(manager.answers());
//   EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "start_app\nclock\n"), "0\n\n");
//   manager.send(SIGTERM);
//   EXPECT_EQ(manager.end(), 0);
#ifndef TARVIO_TESTS_SUPPORT_PROGRAMS_TARVIOD_H
#define TARVIO_TESTS_SUPPORT_PROGRAMS_TARVIOD_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "support/programs/background_program.h"

namespace tarvio_test {

class Tarviod : public BackgroundProgram {
 public:
  explicit Tarviod(
      const std::vector<std::string>& arguments = {}, const std::function<void()>& prepare = [] {});

  // Waits for the message that requests are answered.
  testing::AssertionResult answers();
};

// A tarviod that is expected to end by itself.
struct Ended {
  int status = -1;
  std::string output;
  std::string errors;
};
Ended run_tarviod(
    const std::vector<std::string>& arguments, const std::function<void()>& prepare = [] {});

// A preparation that loads one of the modules of tests/tarviod into the program.
//
// go  the file that the module waits for.
std::function<void()> with_module(const std::string& module, const std::string& go = "");

// Waits until somebody accepts connections on TQ_COM_SOCKET_PATH.
testing::AssertionResult is_listened_to();
// The process that listens on TQ_COM_SOCKET_PATH.
pid_t listening_process();

// The status of an application as the manager sends it, such as "0\nstarted app\n"; empty when
// there is none.
std::string status_of(const std::string& application);

}  // namespace tarvio_test

#endif
