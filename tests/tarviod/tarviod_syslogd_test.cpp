// tarviod, tarvio, a real syslog daemon and logger, end to end.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/files.h"
#include "support/programs/tarvio.h"
#include "support/programs/tarviod.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

// A program from PATH, without output.
pid_t start_program(std::vector<const char*> words) {
  const pid_t child = ::fork();
  if (child != 0) return child;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::dup2(::open("/dev/null", O_RDWR | O_CLOEXEC), STDOUT_FILENO);
  words.push_back(nullptr);
  ::execvp(words[0], const_cast<char* const*>(words.data()));
  ::_exit(127);
}

// BusyBox's syslogd writes a facility and a level into each line of /var/log/messages.
class Syslogd {
 public:
  Syslogd() : pid_(start_program({"busybox", "syslogd", "-n"})) {
    EXPECT_TRUE(eventually([] { return fs::exists("/dev/log"); })) << "needs busybox";
  }
  ~Syslogd() {
    ::kill(pid_, SIGTERM);
    end_of(pid_);
  }
  Syslogd(const Syslogd&) = delete;
  Syslogd& operator=(const Syslogd&) = delete;

 private:
  pid_t pid_;
};

void log_as_webapp(const char* priority, const char* text) {
  EXPECT_EQ(exit_status_of(start_program({"logger", "-t", "webapp", "-p", priority, text})), 0);
}

std::string shown_status() { return run_tarvio({"status"}).output; }

bool is_shown(const std::string& row) {
  return eventually([&] { return shown_status().find(row) != std::string::npos; });
}

TEST(TarviodSyslogd, ShowsAnErrorOfTheLogUntilTheNextStart) {
  write_file("/etc/tarvio/tarviod.conf", "log_period: 1\nhook.webapp: webapp\n");
  install_application("webapp");
  const Syslogd syslogd;
  Tarviod manager;
  ASSERT_TRUE(manager.answers());

  log_as_webapp("user.err", "disk full");
  EXPECT_TRUE(is_shown("webapp  error  disk full"));

  log_as_webapp("user.info", "disk cleaned");
  const char* kept = "nothing to do with status\n";
  EXPECT_TRUE(eventually([&] { return manager.output().find(kept) != std::string::npos; }));
  EXPECT_THAT(shown_status(), HasSubstr("webapp  error  disk full"));

  EXPECT_EQ(run_tarvio({"start", "webapp"}).status, 0);
  EXPECT_THAT(shown_status(), HasSubstr("webapp  normal  started app"));

  log_as_webapp("daemon.warning", "disk almost full");
  EXPECT_TRUE(is_shown("disk almost full"));
}

}  // namespace
}  // namespace tarvio_test
