// A keeper of a test's own, and applications that it runs.
#ifndef TARVIO_TESTS_TARVIOD_KEEPER_KEPT_H
#define TARVIO_TESTS_TARVIOD_KEEPER_KEPT_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "keeper/keeper_link.h"
#include "support/files.h"

namespace tarvio_test {

// Passes only where a test fails.
tarvio::Deadline patience();

// Asks over a link; the code of the reply, or -1 when the link is gone.
int ask(tarviod::KeeperLink& link, tarviod::Ask ask, const std::string& application = "",
        const tarviod::AppSetup& setup = {});
std::vector<tarviod::KeptApp> applications(tarviod::KeeperLink& link);

void set_text(char* text, const std::string& value);
int descriptor_count(pid_t process);

// Whether any process has the name of an application in its environment.
bool any_application_runs();

// The line of a process's status in /proc, such as "Uid:\t0\t0\t0\t0".
std::string status_line(pid_t process, const std::string& key);

class Kept : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Writes an executable file, whose directory is its own, and returns its path.
  std::string script(const std::string& name, const std::string& body) const;
  // With files of its own; without a stop file unless there is a body for it.
  tarviod::AppSetup setup(const std::string& start = "exec sleep 600",
                          const std::string& stop = "") const;
  int start(const std::string& application, const tarviod::AppSetup& setup) {
    return ask(link_, tarviod::Ask::kStart, application, setup);
  }
  int stop(const std::string& application) { return ask(link_, tarviod::Ask::kStop, application); }
  // What the keeper says of an application.
  tarviod::KeptApp app(const std::string& application);
  bool becomes(const std::string& application, tarviod::KeptState state);

  // Of the scripts' directory.
  bool has(const std::string& file) const;
  // Waits for a file with a line, a process id, as `echo $$ >FILE` writes it.
  pid_t process_in(const std::string& file) const;

  const TempDir directory_;
  tarviod::KeeperLink link_;
};

}  // namespace tarvio_test

#endif
