// tarvio status --watch
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "manager/status_text.h"
#include "support/com/replies.h"
#include "support/com/sockets.h"
#include "support/programs/following.h"
#include "support/programs/tarvio.h"
#include "support/programs/written_state.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

using client::change_line;
using client::changes_between;
using client::Status;
using client::StatusChange;

std::string lines_of(const std::vector<StatusChange>& changes) {
  std::string lines;
  for (const StatusChange& change : changes) lines += change_line(change);
  return lines;
}

TEST(StatusChanges, AreNoneBetweenEqualLooks) {
  const std::vector<Status> statuses = {{"clock", 0, "ok"}, {"web", 2, "bad"}};
  EXPECT_TRUE(changes_between(statuses, statuses).empty());
  EXPECT_TRUE(changes_between({}, {}).empty());
}

TEST(StatusChanges, AreWhatIsNewAtFirst) {
  EXPECT_EQ(lines_of(changes_between({}, {{"clock", 0, "ok"}, {"web", 1, ""}})),
            "clock  normal  ok\nweb  warning\n");
}

TEST(StatusChanges, AreStatesDetailsAndWhatIsGone) {
  EXPECT_EQ(lines_of(changes_between({{"a", 0, "x"}, {"b", 0, "x"}, {"c", 0, "x"}, {"d", 0, "x"}},
                                     {{"d", 0, "x"}, {"c", 2, "x"}, {"a", 0, "y"}})),
            "b  gone\nc  error  x\na  normal  y\n");
}

TEST(StatusChanges, CannotDriveATerminal) {
  EXPECT_EQ(change_line({"a\x1b", Status{"a\x1b", 0, "b\rc"}}), "a\\x1b  normal  b\\x0dc\n");
  EXPECT_EQ(change_line({"a\x1b", std::nullopt}), "a\\x1b  gone\n");
}

constexpr char kTwo[] = "clock\n0\nok\nweb\n0\nok\n";
constexpr char kWebFailed[] = "clock\n0\nok\nweb\n2\nfull\n";
constexpr int kTimeout = 5;

Ran watch(std::vector<std::string> arguments = {}) {
  arguments.insert(arguments.begin(), {"status", "--watch", "--timeout", "0.5"});
  return run_tarvio(arguments);
}

TEST(ClientWatch, PrintsALineForEachChange) {
  const Replies manager({kTwo, kTwo, kWebFailed});
  const Ran run = watch();
  EXPECT_EQ(run.output, "clock  normal  ok\nweb  normal  ok\nweb  error  full\n");
  EXPECT_EQ(run.status, kTimeout);
}

TEST(ClientWatch, MayBeForOneApplication) {
  const Replies manager({kTwo, kWebFailed, "clock\n0\nok\n"});
  EXPECT_EQ(watch({"web", "--json"}).output,
            R"({"name":"web","state":"normal","state_code":0,"detail":"ok"})"
            "\n"
            R"({"name":"web","state":"error","state_code":2,"detail":"full"})"
            "\n"
            R"({"name":"web","state":null})"
            "\n");
}

TEST(ClientWatch, LooksAgainAfterATruncatedReply) {
  const Replies manager({kTwo, "clock\n2\nfu", kTwo});
  EXPECT_EQ(watch().output, "clock  normal  ok\nweb  normal  ok\n");
}

TEST(ClientWatch, NeedsAWholeReplyToBeginWith) {
  const Replies manager({"clock\n2\nfu"});
  const Ran run = watch();
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors,
            "tarvio: the manager's reply is truncated or garbled; statuses may be missing\n");
}

TEST(ClientWatch, NeedsAManagerToBeginWith) {
  const Ran run = watch();
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.output, "");
}

TEST(ClientWatch, EndsWhenItsOutputCannotBeWritten) {
  const Replies manager({kTwo});
  const Ran run = run_tarvio({"status", "--watch"}, [] {
    ::dup2(::open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
  });
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarvio: cannot write the output: No space left on device\n");
}

bool is_asked(const Socket& listener) {
  pollfd ready = {.fd = listener.fd(), .events = POLLIN, .revents = 0};
  return ::poll(&ready, 1, 0) != 0;
}

TEST(ClientWatch, AsksNoManagerThatWritesItsStatuses) {
  const Socket manager = listen_on(TQ_COM_SOCKET_PATH);
  write_state("status\t0\tclock\tok\nstatus\t0\tweb\tok\n");
  const Following client({"status", "--watch", "clock"});
  EXPECT_EQ(client.next_line(), "clock  normal  ok\n");
  write_state("status\t2\tclock\tfull\nstatus\t1\tweb\tok\n");
  EXPECT_EQ(client.next_line(), "clock  error  full\n");
  EXPECT_FALSE(is_asked(manager));
}

// What the client prints while two managers go away and a third is there.
Ran watch_three_managers(std::vector<std::string> arguments) {
  std::array<int, 2> errors = {-1, -1};
  EXPECT_EQ(::pipe(errors.data()), 0);
  std::optional<Replies> last;
  std::thread managers([&] {
    for (const char* reply : {kTwo, kTwo}) {
      { const Replies manager({reply}); }
      std::array<char, 200> text = {};
      EXPECT_GT(::read(errors[0], text.data(), text.size() - 1), 0);
      EXPECT_STREQ(text.data(), "tarvio: no manager answers; waiting for one\n");
    }
    last.emplace(std::vector<std::string>{kWebFailed});
  });
  // The first manager must be there before the client looks.
  while (::access(TQ_COM_SOCKET_PATH, F_OK) != 0) ::usleep(1000);
  arguments.insert(arguments.begin(), {"status", "--watch", "--timeout", "0.5"});
  const Ran run = run_tarvio(arguments, [&] { ::dup2(errors[1], STDERR_FILENO); });
  managers.join();
  for (const int fd : errors) ::close(fd);
  return run;
}

TEST(ClientWatch, WaitsForAManagerThatGoesAway) {
  EXPECT_EQ(watch_three_managers({}).output,
            "clock  normal  ok\nweb  normal  ok\nweb  error  full\n");
}

TEST(ClientWatch, ReportsToAScriptThatTheManagerGoesAndIsBack) {
  EXPECT_EQ(watch_three_managers({"clock", "--json"}).output,
            R"({"name":"clock","state":"normal","state_code":0,"detail":"ok"})"
            "\n"
            R"({"manager":"gone"})"
            "\n"
            R"({"manager":"back"})"
            "\n"
            R"({"manager":"gone"})"
            "\n"
            R"({"manager":"back"})"
            "\n");
}

}  // namespace
}  // namespace tarvio_test
