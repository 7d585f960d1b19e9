// tarvio doctor: the manager, its socket and the log that it watches.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <ostream>
#include <string>

#include "doctor.h"
#include "runtime/run_paths.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/users.h"
#include "support/work_directory.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

using testing::HasSubstr;

constexpr char kSocketDirectory[] = "/usr/local/share/tarvio";
constexpr char kConfiguration[] = "/etc/tarvio/tarviod.conf";
constexpr char kRestart[] = "restart or update tarviod";

// The socket.

TEST_F(Doctor, SaysWhoMayUseTheSocket) {
  ::umask(0);
  EXPECT_EQ(row_of("socket"), expected("socket", "ok",
                                       "/usr/local/share/tarvio, mode 0755; every user may connect "
                                       "(mode 0777)"));
  ::umask(007);
  EXPECT_THAT(std::string(row_of("socket")["found"]),
              HasSubstr("; root and group root may connect (mode 0770)"));
  ::umask(077);
  EXPECT_THAT(std::string(row_of("socket")["found"]),
              HasSubstr("; only its owner and root may connect (mode 0700)"));
}

class DoctorOfSockets : public Doctor {
 protected:
  Json row_in_directory(mode_t mode) const {
    ::chmod(kSocketDirectory, mode);
    Json row = row_of("socket");
    ::chmod(kSocketDirectory, 0755);
    return row;
  }
};

// Whatever the mode of the socket.
TEST_F(DoctorOfSockets, SaysWhoMayEnterTheDirectory) {
  ::umask(0);
  EXPECT_EQ(row_in_directory(0700)["found"],
            "/usr/local/share/tarvio, mode 0700; only its owner and root may connect (mode 0777)");
  EXPECT_EQ(row_in_directory(0750)["found"],
            "/usr/local/share/tarvio, mode 0750; root and group root may connect (mode 0777)");
  ::umask(077);
  EXPECT_EQ(row_in_directory(0750)["found"],
            "/usr/local/share/tarvio, mode 0750; only its owner and root may connect (mode 0700)");
}

TEST_F(DoctorOfSockets, SaysThatConnectingTakesBothGroups) {
  if (!has_other_users()) GTEST_SKIP() << "there is no other group in this sandbox";
  ::umask(007);
  ASSERT_EQ(::chown(kSocketDirectory, 0, 54321), 0);
  EXPECT_THAT(std::string(row_in_directory(0750)["found"]),
              HasSubstr("; root and members of both 54321 and root may connect (mode 0770)"));
  EXPECT_THAT(std::string(row_in_directory(0751)["found"]),
              HasSubstr("; root and group root may connect (mode 0770)"));
  ::umask(0);
  EXPECT_THAT(std::string(row_in_directory(0750)["found"]),
              HasSubstr("; root and group 54321 may connect (mode 0777)"));
  ASSERT_EQ(::chown(kSocketDirectory, 0, 0), 0);
}

TEST_F(Doctor, NeedsToSeeTheSocket) {
  const Socket manager = listen_on(TQ_COM_SOCKET_PATH);
  ::chmod(kSocketDirectory, 0);
  const Ran ran = run_tarvio({"doctor", kRoom, "--json"}, give_up_file_permissions);
  ::chmod(kSocketDirectory, 0755);
  std::filesystem::remove(TQ_COM_SOCKET_PATH);
  EXPECT_EQ(row(Json::parse(ran.output), "socket"),
            expected("socket", "failed",
                     "cannot be checked: /usr/local/share/tarvio/ipcom: Permission denied",
                     "run tarvio as root"));
}

TEST_F(Doctor, RefusesASocketThatOthersCanReplace) {
  ::chmod(kSocketDirectory, 0777);
  const Json row = row_of("socket");
  ::chmod(kSocketDirectory, 0755);
  EXPECT_EQ(row["status"], "failed");
  EXPECT_EQ(row["remedy"], "chmod 755 /usr/local/share/tarvio");
}

TEST_F(Doctor, RefusesASocketOfAnotherUser) {
  if (!has_other_users()) GTEST_SKIP() << "there is no other user in this sandbox";
  constexpr uid_t kSomebody = 54321;
  ASSERT_EQ(::chown(kSocketDirectory, kSomebody, 0), 0);
  const Json of_directory = row_of("socket");
  ASSERT_EQ(::chown(runtime::kRunDirectory, kSomebody, 0), 0);
  const Json of_managers_directory = row_of("socket");
  ASSERT_EQ(::chown(runtime::kRunDirectory, 0, 0), 0);
  ASSERT_EQ(::chown(kSocketDirectory, 0, 0), 0);
  EXPECT_EQ(of_directory, expected("socket", "failed",
                                   "/usr/local/share/tarvio, mode 0755: its owner, user 54321, "
                                   "can put another socket there",
                                   "chown root /usr/local/share/tarvio"));
  EXPECT_EQ(of_managers_directory["status"], "ok");
  EXPECT_EQ(row_of("socket", [] { EXPECT_EQ(::chown(TQ_COM_SOCKET_PATH, kSomebody, 0), 0); }),
            expected("socket", "failed",
                     "/usr/local/share/tarvio/ipcom belongs to user 54321, who may answer in "
                     "place of the manager",
                     "restart tarviod, which replaces it"));
}

TEST_F(Doctor, RefusesAFileInPlaceOfTheSocket) {
  write_file(TQ_COM_SOCKET_PATH, "");
  const Ran ran = run_tarvio({"doctor", kRoom, "--json"});
  std::filesystem::remove(TQ_COM_SOCKET_PATH);
  EXPECT_EQ(row(Json::parse(ran.output), "socket"),
            expected("socket", "failed", "/usr/local/share/tarvio/ipcom is not a socket",
                     "restart tarviod, which replaces it"));
}

// The manager.

TEST_F(Doctor, FindsTheManager) {
  const Json rows = look();
  EXPECT_EQ(row(rows, "manager"), expected("manager", "ok", "tarviod " TARVIO_VERSION " answers"));
  EXPECT_EQ(row(rows, "descriptors"), expected("descriptors", "ok", "23 of 1024 are in use"));
}

TEST_F(Doctor, MissesTheManager) {
  const Ran ran = run_tarvio({"doctor", kRoom, "--json"});
  EXPECT_EQ(ran.status, 1);
  const Json rows = Json::parse(ran.output);
  EXPECT_EQ(row(rows, "manager"),
            expected("manager", "failed",
                     "no manager answers on /usr/local/share/tarvio/ipcom; is tarviod running?",
                     "start tarviod"));
  EXPECT_EQ(rows.size(), 27U);  // nothing is said of descriptors
}

TEST_F(Doctor, WarnsOfAManagerOfAnotherVersion) {
  EXPECT_EQ(row(look(
                    {}, [] {}, "0\n0.9.0\n"),
                "manager"),
            expected("manager", "warning",
                     "tarviod 0.9.0 answers, and this is tarvio " TARVIO_VERSION, kRestart));
  EXPECT_EQ(row(look(
                    {}, [] {}, ""),
                "manager"),
            expected("manager", "warning",
                     "a manager that does not report its version answers, and this is "
                     "tarvio " TARVIO_VERSION,
                     kRestart));
}

TEST_F(Doctor, NeedsAWholeAnswerOfTheManager) {
  for (const char* const answer : {"0\n", "0\n1.0", "22\n1.0.0\n", "0\n1.0.0\nx\n"}) {
    EXPECT_EQ(row(look(
                      {}, [] {}, answer),
                  "manager"),
              expected("manager", "failed",
                       "the manager's reply about its version is truncated or garbled", kRestart))
        << answer;
  }
}

TEST_F(Doctor, DoesNotWaitForASilentManager) {
  const Socket silent = listen_on(TQ_COM_SOCKET_PATH);
  const Ran ran = run_tarvio({"doctor", kRoom, "--json", "--timeout", "1"});
  std::filesystem::remove(TQ_COM_SOCKET_PATH);
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(std::string(row(Json::parse(ran.output), "manager")["found"]),
              HasSubstr("no answer from the manager in time"));
}

TEST_F(Doctor, WarnsOfDescriptorsThatRunShort) {
  std::string state = state_text("");
  state.replace(state.find("23\t1024"), 7, "820\t1024");
  put_state(state);
  EXPECT_EQ(row_of("descriptors"), expected("descriptors", "warning", "820 of 1024 are in use",
                                            "raise the manager's limit of open files"));
  std::filesystem::remove(runtime::kStatePath);
  EXPECT_EQ(row_of("descriptors"),
            expected("descriptors", "warning", "no figures in /run/tarvio/state", kRestart));
}

TEST_F(Doctor, SaysWhatNeedsRoot) {
  write_file(kConfiguration, "hook.webapp: webapp\n");
  std::filesystem::remove("/dev/mtdblock4");
  write_file("/dev/mtdblock4", "");
  for (const char* const path : {runtime::kStatePath, "/var/log/messages", "/dev/mtdblock4"}) {
    ::chmod(path, 0);
  }
  const Json rows = look({}, give_up_file_permissions);
  std::filesystem::remove(kConfiguration);
  EXPECT_EQ(row(rows, "descriptors"),
            expected("descriptors", "warning",
                     "not known: no permission to read /run/tarvio/state; run tarvio as root",
                     "run tarvio as root"));
  EXPECT_EQ(row(rows, "system log"),
            expected("system log", "failed", "/var/log/messages: Permission denied",
                     "run tarvio as root"));
  EXPECT_EQ(
      row(rows, "area rootfs"),
      expected("area rootfs", "failed", "/dev/mtdblock4: Permission denied", "run tarvio as root"));
}

// The log.

struct Log {
  const char* name;
  const char* configuration;
  const char* lines;  // null for no file
  const char* status;
  const char* found;
};

void PrintTo(const Log& log, std::ostream* out) { *out << log.name; }

class DoctorOfLogs : public Doctor, public testing::WithParamInterface<Log> {};

TEST_P(DoctorOfLogs, SaysWhetherItsLinesCount) {
  write_file(kConfiguration, GetParam().configuration);
  std::filesystem::remove("/var/log/messages");
  if (GetParam().lines != nullptr) write_file("/var/log/messages", GetParam().lines);
  const Json row = row_of("system log");
  std::filesystem::remove(kConfiguration);
  EXPECT_EQ(row["status"], GetParam().status);
  EXPECT_EQ(row["found"], GetParam().found);
  EXPECT_EQ(row["remedy"] == nullptr, row["status"] == "ok");
}

constexpr char kIso[] = "2026-01-12T00:00:12.123456+00:00 board webapp[12]: disk full\n";

INSTANTIATE_TEST_SUITE_P(
    Doctor, DoctorOfLogs,
    testing::Values(
        Log{"Watched", "hook.webapp: webapp\n", kReport, "ok",
            "/var/log/messages, lines of the form busybox, hooks: 1"},
        Log{"NotWatched", "", kReport, "ok",
            "/var/log/messages, lines of the form busybox, not watched: no hook is configured"},
        Log{"Disabled", "hook.webapp: webapp\nlog_period: 0\n", kReport, "ok",
            "/var/log/messages, lines of the form busybox, not watched: log_period is 0"},
        Log{"Missing", "hook.webapp: webapp\n", nullptr, "failed",
            "/var/log/messages: No such file or directory"},
        Log{"NotNeeded", "", nullptr, "warning",
            "/var/log/messages: No such file or directory (not watched: no hook is configured)"},
        Log{"Empty", "hook.webapp: webapp\n", "", "failed",
            "/var/log/messages is empty, so the form of its lines is not known"},
        Log{"EmptyOfAConfiguredForm", "hook.webapp: webapp\nlog_format: busybox\n", "", "warning",
            "/var/log/messages is empty, so lines of the form busybox are yet to come"},
        Log{"WithoutLevels", "hook.webapp: webapp\n", kIso, "failed",
            "/var/log/messages: the lines have no level, so those of hooks without one do not "
            "count: add 'level.TEXT: err' for each hook.TEXT, or change the format of the log as "
            "tarviod.conf(5) says"},
        Log{"WithConfiguredLevels", "hook.webapp: webapp\nlevel.webapp: err\n", kIso, "ok",
            "/var/log/messages, lines of the form iso, hooks: 1"},
        Log{"OfAnotherForm", "hook.webapp: webapp\nlog_format: rfc5424\n", kReport, "failed",
            "/var/log/messages: no line has the form 'Jan 12 00:00:12 board user.err webapp[12]: "
            "disk full' or another one of tarviod.conf(5), so none counts: change the format of "
            "the "
            "log as it says"},
        Log{"Elsewhere", "hook.webapp: webapp\nlog_file: /var/log\n", kReport, "failed",
            "/var/log: not a regular file"},
        Log{"Mistaken", "log_source: files\n", kReport, "failed",
            "cannot be checked: /etc/tarvio/tarviod.conf:1: unknown log_source: write file or "
            "journal"}),
    [](const auto& log) { return log.param.name; });

class DoctorOfJournals : public Doctor {
 protected:
  DoctorOfJournals() { write_file(kConfiguration, "log_source: journal\nhook.webapp: webapp\n"); }
  ~DoctorOfJournals() override { std::filesystem::remove(kConfiguration); }

  static constexpr char kRemedy[] = "start systemd-journald, or run tarvio as root";
};

TEST_F(DoctorOfJournals, FindsALine) {
  const Tool journal("journalctl", "echo 'Jan 12 00:00:12 board webapp[12]: disk full'");
  EXPECT_EQ(row_of("system log"),
            expected("system log", "ok", "the journal, which journalctl prints, hooks: 1"));
}

TEST_F(DoctorOfJournals, MissesALine) {
  const Tool journal("journalctl", "echo 'Failed to open journal: Permission denied' >&2");
  EXPECT_EQ(row_of("system log"),
            expected("system log", "failed", "the journal: journalctl prints no line", kRemedy));
}

TEST_F(DoctorOfJournals, SaysWhyItCannotBeRead) {
  const Tool journal("journalctl", "echo line; echo 'Failed to open journal' >&2; exit 1");
  EXPECT_EQ(
      row_of("system log"),
      expected("system log", "failed",
               "the journal: journalctl failed with status 1: Failed to open journal", kRemedy));
}

TEST_F(DoctorOfJournals, DoesNotWaitForASlowOne) {
  const Tool journal("journalctl", "echo line; exec sleep 1000");
  EXPECT_EQ(row(look({"--timeout", "2"}), "system log"),
            expected("system log", "failed",
                     "the journal: journalctl timed out and was stopped (use --timeout SECONDS to "
                     "wait longer)",
                     "make the journal smaller: journalctl --vacuum-size=SIZE"));
}

}  // namespace
}  // namespace tarvio_test
