// A manager of a test's own, with the keeper that it leaves when it is killed, and what it
// publishes.
#ifndef TARVIO_TESTS_TARVIOD_MANAGED_MANAGED_H
#define TARVIO_TESTS_TARVIOD_MANAGED_MANAGED_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/com/sockets.h"
#include "support/files.h"
#include "support/programs/tarviod.h"

namespace tarvio_test {

// An application as the file of states has it; empty texts when it is not there.
struct PublishedApp {
  std::string state;
  pid_t pid = 0;
  int starts = 0;
  std::string exit;
  std::string installed;
  std::string running;
};
PublishedApp published(const std::string& application);
bool becomes(const std::string& application, const std::string& state);

// A start file, and a stop file unless its text is empty.
void install(const std::string& name, const std::string& start, const std::string& stop = "");
void upgrade(const std::string& name, const std::string& version);
void uninstall(const std::string& name);
// The text of NAME.conf.
void configure(const std::string& name, const std::string& text);

inline constexpr char kStays[] = "exec sleep 600";

class Managed : public testing::Test {
 protected:
  // Ends the keeper as well, unless the test has.
  void TearDown() override;

  void start_manager(
      const std::vector<std::string>& arguments = {}, const std::function<void()>& prepare = [] {});
  void kill_manager();
  static void kill_keeper();
  static std::string request(const std::string& lines);
  // One whose reply comes later.
  static Socket send_request(const std::string& lines);
  // A request for exactly this application; the code of its reply.
  static std::string start(const std::string& name) {
    return request("start_exact\n" + name + "\n");
  }
  static std::string stop(const std::string& name) { return request("stop_exact\n" + name + "\n"); }
  // Waits until an application has exactly one process, which it returns.
  static pid_t only_process_of(const std::string& name);
  static bool says(const std::string& name, const std::string& status);

  const TempDir directory_;
  std::unique_ptr<Tarviod> manager_;
};

inline constexpr char kDone[] = "0\n\n";
inline constexpr char kStarted[] = "0\nstarted app\n";
inline constexpr char kStartedAgain[] = "0\nstarted again\n";
inline constexpr char kStartedAfterKeeper[] = "0\nstarted again after the keeper had died\n";

}  // namespace tarvio_test

#endif
