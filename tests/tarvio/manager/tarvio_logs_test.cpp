// tarvio logs
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "manager/log_lines.h"
#include "support/children.h"
#include "support/files.h"
#include "support/packages/package_listing.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/following.h"
#include "support/programs/system_log.h"
#include "support/programs/tarvio.h"
#include "support/programs/written_state.h"
#include "tarvio/log.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;
using client::ident_of;
using client::LogFile;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

using Line = std::vector<std::string>;

constexpr char kPrinted[] = "/var/log/applications";
constexpr char kMessages[] = "/var/log/messages";
constexpr char kSyslog[] = "/var/log/syslog";

std::string name_in(const std::string& line) {
  const auto ident = ident_of(line);
  if (!ident) return "none";
  return std::string(ident->name) + " " + std::to_string(ident->pid.value_or(-1));
}

TEST(ClientLogLine, NamesWhoWroteIt) {
  EXPECT_EQ(name_in("Nov 22 06:34:58 board local6.info clock[12]: tick: tock"), "clock 12");
  EXPECT_EQ(name_in("Nov  2 06:34:58 board clock[12]: tick"), "clock 12");
  EXPECT_EQ(name_in("Nov  2 06:34:58 clock[12]: tick"), "clock 12");
  EXPECT_EQ(name_in("2026-11-22T06:34:58.123456+00:00 board clock[12]: tick"), "clock 12");
  EXPECT_EQ(name_in("Nov 22 06:34:58 board clock: tick"), "clock -1");
  EXPECT_EQ(name_in("Nov 22 06:34:58 board a clock[12]: tick"), "clock 12");
  EXPECT_EQ(name_in("<182>1 2026-11-22T06:34:58.123456+00:00 board clock 12 - -  a: b"),
            "clock 12");
  EXPECT_EQ(name_in("<13>1 2026-11-22T06:34:58+00:00 board clock - - [a b=\"c\"] d"), "clock -1");
  for (const char* const line :
       {"", "x", "Nov 22 06:34:58", "Nov 22 06:34:58 a b c d clock: x",
        "Nov 22 06:34:58 board clock]: x", "<13>1 2026-11-22 board clock"}) {
    EXPECT_EQ(name_in(line), "none") << line;
  }
}

void append(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::app) << text;
}

class ClientLogFile : public testing::Test {
 protected:
  Line read() {
    Line lines;
    (void)file_.read_new([&](std::string_view line) { lines.emplace_back(line); });
    return lines;
  }

  const TempDir directory_;
  const fs::path path_ = directory_ / "log";
  LogFile file_{path_};
};

TEST_F(ClientLogFile, GivesWholeLinesAsTheyCome) {
  EXPECT_FALSE(file_.read_new([](std::string_view) {}));
  write_file(path_, "one\ntw");
  EXPECT_THAT(read(), ElementsAre("one"));
  append(path_, "o\n");
  EXPECT_THAT(read(), ElementsAre("two"));
  EXPECT_THAT(read(), ElementsAre());
}

TEST_F(ClientLogFile, IsFollowedIntoTheNextOne) {
  write_file(path_, "one\n");
  EXPECT_THAT(read(), ElementsAre("one"));
  fs::rename(path_, directory_ / "log.0");
  EXPECT_THAT(read(), ElementsAre());
  write_file(path_, "");
  append(directory_ / "log.0", "two\nla");
  EXPECT_THAT(read(), ElementsAre("two"));
  append(directory_ / "log.0", "st");
  append(path_, "three\n");
  EXPECT_THAT(read(), ElementsAre("last", "three"));
}

TEST_F(ClientLogFile, MayBeTruncated) {
  write_file(path_, "a long line\nand a part");
  EXPECT_THAT(read(), ElementsAre("a long line"));
  write_file(path_, "short\n");
  EXPECT_THAT(read(), ElementsAre("short"));
}

// Without a journal.
class ClientLogs : public WithoutPackages {
 protected:
  ClientLogs() {
    fs::create_directories("/var/log");
    for (const char* const path : {kPrinted, kMessages, kSyslog}) fs::remove(path);
    // It runs the client where it is emulated.
    shell(tools_.path(), "tool=$(command -v qemu-arm) && ln -s $tool .; true");
    ::setenv("PATH", tools_.path().c_str(), 1);
  }

  const TempDir tools_;
};

constexpr char kSample[] =
    "Nov 22 06:34:58 board local6.info clock[12]: one\n"
    "Nov 22 06:34:58 board user.info other[13]: two\n"
    "Nov 22 06:34:59 board local6.notice radio[14]: three\x1b\n"
    "Nov 22 06:35:00 board local6.info clock[12]: four\n"
    "Nov 22 06:35:01 board daemon.notice tarviod[1]: five\n"
    "Nov 22 06:35:02 board user.warning tarvio[1]: six\n";

TEST_F(ClientLogs, AreThoseOfAnApplication) {
  write_file(kMessages, kSample);
  const Ran run = run_tarvio({"logs", "clock"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output,
            "Nov 22 06:34:58 board local6.info clock[12]: one\n"
            "Nov 22 06:35:00 board local6.info clock[12]: four\n");
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(run_tarvio({"logs", "clock", "-n", "1"}).output,
            "Nov 22 06:35:00 board local6.info clock[12]: four\n");
  EXPECT_EQ(run_tarvio({"logs", "clock", "--lines=0"}).output, "");
}

TEST_F(ClientLogs, AreThoseOfAllApplicationsAndOfTheManager) {
  write_file(kSyslog, kSample);
  add_package("clock");
  write_state("app\tradio\trunning\t14\t0\t1\t-\t1.0\t1.0\n");
  EXPECT_EQ(run_tarvio({"logs"}).output,
            "Nov 22 06:34:58 board local6.info clock[12]: one\n"
            "Nov 22 06:34:59 board local6.notice radio[14]: three\\x1b\n"
            "Nov 22 06:35:00 board local6.info clock[12]: four\n"
            "Nov 22 06:35:01 board daemon.notice tarviod[1]: five\n"
            "Nov 22 06:35:02 board user.warning tarvio[1]: six\n");
}

TEST_F(ClientLogs, AreWhatTheManagerLogs) {
  const SystemLog log;
  tq_log_init();
  tq_log_func(TQ_LOG_WARNING, "tarviod", 1, "disk full");
  const std::string logged = log.text();
  const std::string line = logged.substr(logged.find('>') + 1);
  EXPECT_THAT(line, HasSubstr("disk full"));
  write_file(kMessages, line);
  EXPECT_EQ(run_tarvio({"logs", "tarviod"}).output, line);
}

TEST_F(ClientLogs, AreJsonForScripts) {
  write_file(kMessages, kSample);
  EXPECT_EQ(json::parse(run_tarvio({"logs", "tarviod", "--json"}).output),
            json::array({{{"name", "tarviod"},
                          {"pid", 1},
                          {"line", "Nov 22 06:35:01 board daemon.notice tarviod[1]: five"}},
                         {{"name", "tarvio"},
                          {"pid", 1},
                          {"line", "Nov 22 06:35:02 board user.warning tarvio[1]: six"}}}));
}

TEST_F(ClientLogs, SayWhereTheyWereLookedFor) {
  write_file(kSyslog, kSample);
  const Ran run = run_tarvio({"logs", "alarm"});
  EXPECT_EQ(run.status, 12);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors,
            "tarvio: no lines found; looked in /var/log/applications (No such file or directory), "
            "/var/log/messages (No such file or directory), /var/log/syslog (no such lines), the "
            "journal (the tool journalctl is missing; install "
            "it, or add its directory to PATH)\n");
}

// A file of their own, as in docs/manager.md, is not hidden by what they log by themselves.
TEST_F(ClientLogs, AreWhatAnApplicationHasPrinted) {
  write_file(kPrinted, "<182>1 2026-11-22T06:34:58.123456+00:00 board clock 12 - -  printed\n");
  write_file(kMessages, kSample);
  EXPECT_EQ(run_tarvio({"logs", "clock"}).output,
            "<182>1 2026-11-22T06:34:58.123456+00:00 board clock 12 - -  printed\n");
  EXPECT_THAT(run_tarvio({"logs", "tarviod"}).output, HasSubstr("six\n"));
}

TEST_F(ClientLogs, ComeFromTheFileOfTheManagersConfiguration) {
  const fs::path log = tools_ / "log";
  fs::create_directories("/etc/tarvio");
  write_file("/etc/tarvio/tarviod.conf", "log_file: " + log.string() + "  # here\n");
  write_file(log, "Nov 22 06:34:58 board clock[12]: here\n");
  write_file(kPrinted, kSample);
  EXPECT_EQ(run_tarvio({"logs", "clock"}).output, "Nov 22 06:34:58 board clock[12]: here\n");
  EXPECT_THAT(
      run_tarvio({"logs", "alarm"}).errors,
      HasSubstr("looked in " + log.string() + " (no such lines), /var/log/applications (no "));
}

// The lines may be in there.
TEST_F(ClientLogs, AreNotUnknownWhereALogCannotBeRead) {
  fs::create_directory(kMessages);
  for (const Line& line : {Line{"logs", "clock", "--json"}, Line{"logs", "clock", "-f"}}) {
    const Ran run = run_tarvio(line);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_THAT(run.errors, HasSubstr("/var/log/messages (Is a directory), "));
  }
  fs::remove(kMessages);
}

TEST_F(ClientLogs, ComeFromTheJournal) {
  write_program(tools_ / "journalctl",
                "#!/bin/sh\necho \"Nov 22 06:34:58 board clock[12]: $*\"\necho 'x clock[1]: y'");
  EXPECT_EQ(run_tarvio({"logs", "clock", "-n", "3"}).output,
            "Nov 22 06:34:58 board clock[12]: -q --no-pager -o short -n 3 -t clock\n");
  write_file(kMessages, kSample);
  EXPECT_THAT(run_tarvio({"logs", "clock"}).output, HasSubstr("one\n"));
}

TEST_F(ClientLogs, SayWhyTheJournalGaveNone) {
  write_program(tools_ / "journalctl",
                "#!/bin/sh\necho 'No journal files were found.' >&2\nexit 1");
  EXPECT_THAT(run_tarvio({"logs", "clock"}).errors,
              HasSubstr("the journal (journalctl failed with status 1: No journal files were "
                        "found.)\n"));
}

TEST_F(ClientLogs, NeedANumberOfLines) {
  for (const char* const number : {"-1", "x", "", "1.5"}) {
    EXPECT_EQ(run_tarvio({"logs", "-n", number}).errors,
              "tarvio: '" + std::string(number) +
                  "' is not a number of lines; try 'tarvio logs --help'\n");
  }
}

TEST_F(ClientLogs, AreFollowedAcrossARotation) {
  write_file(kMessages, kSample);
  const Following client({"logs", "clock", "-f", "-n", "1"});
  EXPECT_THAT(client.next_line(), HasSubstr("four\n"));
  append(kMessages, "Nov 22 06:35:02 board radio[14]: no\nNov 22 06:35:02 board clock[12]: six\n");
  EXPECT_THAT(client.next_line(), HasSubstr("six\n"));
  fs::rename(kMessages, "/var/log/messages.0");
  write_file(kMessages, "Nov 22 06:35:03 board clock[12]: seven\n");
  EXPECT_THAT(client.next_line(), HasSubstr("seven\n"));
  append(kMessages, "Nov 22 06:35:04 board clock[12]: eight\n");
  EXPECT_THAT(client.next_line(), HasSubstr("eight\n"));
}

TEST_F(ClientLogs, AreFollowedFromTheFirstOne) {
  write_file(kMessages, "");
  const Following client({"logs", "clock", "--follow", "--json"});
  append(kMessages, "Nov 22 06:35:02 board clock[12]: one\n");
  EXPECT_EQ(json::parse(client.next_line())["pid"], 12);
}

TEST_F(ClientLogs, AreFollowedInAFileThatComes) {
  write_program(tools_ / "journalctl", "#!/bin/sh\n: >/var/log/is_asked\nexit 1\n");
  const Following client({"logs", "clock", "-f"});
  ASSERT_TRUE(eventually([] { return fs::exists("/var/log/is_asked"); }));
  write_file(kMessages, kSample);
  EXPECT_THAT(client.next_line(), HasSubstr("one\n"));
  EXPECT_THAT(client.next_line(), HasSubstr("four\n"));
  append(kMessages, "Nov 22 06:35:02 board clock[12]: six\n");
  EXPECT_THAT(client.next_line(), HasSubstr("six\n"));
}

TEST_F(ClientLogs, AreFollowedInTheDirectoryThatALinkLeadsTo) {
  write_file(tools_ / "messages", kSample);
  fs::create_symlink(tools_ / "messages", kMessages);
  const Following client({"logs", "clock", "-f", "-n", "1"});
  EXPECT_THAT(client.next_line(), HasSubstr("four\n"));
  append(tools_ / "messages", "Nov 22 06:35:02 board clock[12]: six\n");
  EXPECT_THAT(client.next_line(), HasSubstr("six\n"));
}

TEST_F(ClientLogs, AreFollowedInTheJournal) {
  write_program(tools_ / "journalctl",
                "#!/bin/sh\n"
                "echo 'Nov 22 06:34:58 board clock[12]: one'\n"
                "case $* in *-f*) read -r line </var/log/fifo; echo \"$line\" ;; esac\n");
  ASSERT_EQ(::mkfifo("/var/log/fifo", 0600), 0);
  const Following client({"logs", "clock", "-f"});
  EXPECT_THAT(client.next_line(), HasSubstr("one\n"));
  append("/var/log/fifo", "Nov 22 06:34:59 board clock[12]: two\n");
  EXPECT_THAT(client.next_line(), HasSubstr("two\n"));
}

}  // namespace
}  // namespace tarvio_test
