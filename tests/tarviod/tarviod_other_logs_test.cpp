// How tarviod watches logs that are not BusyBox's: other forms of lines, and the journal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/files.h"
#include "support/programs/watched_log.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

TEST_F(WatchedLog, CountsNothingThatApplicationsPrint) {
  start();
  append_to_log("Jan  1 00:00:00 board local6.info clock[1]: error: none\n");
  append_to_log("<181>1 2026-01-12T00:00:12Z board clock 1 - - error: none\n");
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(counted(), 0);
  EXPECT_EQ(manager().errors(), "");
}

TEST_F(WatchedLog, TakesTheLevelOfTheProtocolsForm) {
  start();
  append_to_log("<14>1 2026-01-12T00:00:12.123456+00:00 board clock 1 - - fine\n");
  EXPECT_TRUE(becomes("0\nfine\n"));
  append_to_log("<12>1 2026-01-12T00:00:12.123456+00:00 board clock - - -  low battery\n");
  EXPECT_TRUE(becomes("1\nlow battery\n"));
  append_to_log("<9>1 2026-01-12T00:00:12Z board clock 1 - [a b=\"c\"] no battery\n");
  EXPECT_TRUE(becomes("2\nno battery\n"));
}

TEST_F(WatchedLog, TakesTheLevelOfTheHookForLinesWithoutOne) {
  write_file(kConfigFile,
             "log_period: 1\nhook.clock: clock\nhook.mark: mark\n"
             "level.clock: err\nlevel.mark: warning\n");
  start();
  append_to_log("Jan 12 00:00:12 board mark[1]: half: 50 %\n");
  EXPECT_TRUE(becomes("1\nhalf: 50 %\n", "mark"));
  append_to_log(log_line("info", "fine"));
  EXPECT_TRUE(becomes("0\nfine\n"));
  append_to_log("2026-01-12T00:00:12Z board clock[1]: no battery\n");
  EXPECT_TRUE(becomes("2\nno battery\n"));
  EXPECT_EQ(manager().errors(), "");
}

constexpr char kOtherForm[] =
    "tarviod: /var/log/messages: no line has the form 'Jan 12 00:00:12 board user.err webapp[12]: "
    "disk full' or another one of tarviod.conf(5), so none counts: change the format of the log as "
    "it says\n";
constexpr char kNoLevel[] =
    "tarviod: /var/log/messages: the lines have no level, so those of hooks without one do not "
    "count: add 'level.TEXT: err' for each hook.TEXT, or change the format of the log as "
    "tarviod.conf(5) says\n";

struct UselessForm {
  const char* name;
  const char* config;
  const char* before;
  const char* complaint;
};
std::ostream& operator<<(std::ostream& stream, const UselessForm& form) {
  return stream << form.name;
}

class OtherForm : public WatchedLog, public testing::WithParamInterface<UselessForm> {
 protected:
  OtherForm() { write_file(kConfigFile, read_file(kConfigFile) + GetParam().config); }
};

TEST_P(OtherForm, IsReportedOnceAndDoesNotCount) {
  start();
  for (const char* program : {"radio", "clock", "clock"}) {
    append_to_log(GetParam().before + std::string(program) + "[1]: no battery: 0 %\n");
    wait_for_look();
  }
  EXPECT_TRUE(eventually([&] { return manager().errors() == GetParam().complaint; }));
  append_to_log(log_line("warning", "x"));
  EXPECT_TRUE(becomes("1\nx\n"));
  EXPECT_EQ(manager().errors(), GetParam().complaint);
  EXPECT_EQ(counted(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    WatchedLog, OtherForm,
    testing::Values(
        UselessForm{"Iso", "", "2026-01-12T00:00:12.123456+00:00 board ", kNoLevel},
        UselessForm{"Traditional", "", "Jan 12 00:00:12 board ", kNoLevel},
        UselessForm{"OneHookWithoutLevel", "level.mark: info\n", "Jan 12 00:00:12 board ",
                    kNoLevel},
        UselessForm{"NoHost", "", "Jan 12 00:00:12 user.err ", kNoLevel},
        UselessForm{"NoBusybox", "log_format: busybox\n", "Jan 12 00:00:12 board ", kOtherForm},
        UselessForm{"HalfProtocol", "", "<11>1 2026-01-12T00:00:12Z board ", kOtherForm},
        UselessForm{"NoTime", "", "", kOtherForm}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(WatchedLog, ReportsAtTheStartThatTheLogHasAnotherFormat) {
  write_file(kLogFile, "Jan 12 00:00:12 board clock[1]: no battery\n");
  start();
  EXPECT_EQ(manager().errors(), kNoLevel);
}

TEST_F(WatchedLog, ReportsNoOtherFormatBecauseOfSomeLines) {
  write_file(kLogFile, "Jan 12 00:00:12 board syslog.info -- MARK --\n");
  start();
  append_to_log("Jan 12 00:00:12 board -- MARK --\n");
  append_to_log("\nof two lines\n" + log_line("info", "x") + "again\n");
  EXPECT_TRUE(becomes("0\nx\n"));
  append_to_log("2026-01-12T00:00:12Z board clock[1]: x\n");
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(manager().errors(), "");
}

constexpr char kJournal[] = "/run/journal";
constexpr char kNotRunning[] =
    "tarviod: journal: journalctl does not run: see why with 'journalctl -f', or set log_source to "
    "file\n";

// A stand-in for journalctl prints the lines of a file, which have the form of real ones.
class Journal : public WatchedLog {
 protected:
  Journal() {
    write_file(kConfigFile,
               "log_source: journal\nlog_period: 1\nhook.clock: clock\nhook.mark: mark\n");
    fs::create_directories("/opt/bin");
    write_program("/opt/bin/journalctl",
                  "#!/bin/sh\n"
                  "echo \"$*\" >>/run/calls\n"
                  "for word; do case $word in --after-cursor=*) after=${word#*=} ;; esac; done\n"
                  "[ -n \"$after\" ] || exec tail -n 1 -f /run/journal\n"
                  "line=$(grep -nF \"\\\"$after\\\"\" /run/journal | cut -d: -f1)\n"
                  "exec tail -n +$((line + 1)) -f /run/journal\n");
    write_file(kJournal, entry("3", "of yesterday"));
  }

  std::string entry(const std::string& level, const std::string& text,
                    const std::string& ident = "clock", const std::string& facility = "1") {
    return "{\"_PID\":\"1\",\"__CURSOR\":\"s=1;i=" + std::to_string(++entries_) +
           "\",\"PRIORITY\":\"" + level + "\",\"MESSAGE\":\"" + text + "\",\"SYSLOG_FACILITY\":\"" +
           facility + "\",\"SYSLOG_IDENTIFIER\":\"" + ident + "\"}\n";
  }

  static void append(const std::string& text) {
    std::ofstream(kJournal, std::ios::app) << text << std::flush;
  }

  // Waits until the entries so far have counted.
  testing::AssertionResult reaches_mark(const std::string& text) {
    append(entry("6", text, "mark"));
    return becomes("0\n" + text + "\n", "mark");
  }

  void start_with_journal() {
    start({},
          [] { ::setenv("PATH", (std::string("/opt/bin:") + std::getenv("PATH")).c_str(), 1); });
  }

  // The process that prints the journal; -1 when there is none.
  pid_t journalctl() {
    const std::vector<pid_t> children = children_of(reader_of(manager()));
    return children.empty() ? -1 : children.front();
  }

 private:
  int entries_ = 0;
};

TEST_F(Journal, CountsFromItsPresentEnd) {
  start_with_journal();
  append(entry("6", "fine"));
  EXPECT_TRUE(becomes("0\nfine\n"));
  append(entry("4", "low battery") + entry("3", "no battery"));
  EXPECT_TRUE(becomes("2\nno battery\n"));
  EXPECT_EQ(counted(), 3);
  EXPECT_EQ(manager().errors(), "");
  EXPECT_EQ(read_file("/run/calls"),
            "--quiet --follow --output=json --output-fields=PRIORITY,SYSLOG_FACILITY,"
            "SYSLOG_IDENTIFIER,SYSLOG_PID,MESSAGE,_COMM,_PID --lines=1\n");
}

TEST_F(Journal, CountsNothingThatApplicationsPrint) {
  start_with_journal();
  append(entry("3", "x", "clock", "22") + "not an entry\n{\"MESSAGE\":\n");
  ASSERT_TRUE(reaches_mark("1"));
  EXPECT_EQ(counted(), 1);
}

TEST_F(Journal, GoesOnWhereItsReaderDied) {
  start_with_journal();
  append(entry("6", "1"));
  EXPECT_TRUE(becomes("0\n1\n"));
  const pid_t reader = reader_of(manager());
  const pid_t printer = journalctl();
  ::kill(reader, SIGSTOP);
  append(entry("6", "2"));
  ::kill(reader, SIGKILL);
  EXPECT_TRUE(ends(printer));
  append(entry("6", "3"));
  ASSERT_TRUE(reaches_mark("1"));
  EXPECT_EQ(status_of("clock"), "0\n3\n");
  EXPECT_EQ(counted(), 4);
}

TEST_F(Journal, GoesOnAfterAReload) {
  start_with_journal();
  append(entry("6", "1") + entry("6", "x", "radio"));
  ASSERT_TRUE(reaches_mark("1"));
  const pid_t reader = reader_of(manager());
  write_file(kConfigFile, read_file(kConfigFile) + "hook.radio: radio\n");
  manager().send(SIGHUP);
  EXPECT_TRUE(eventually([&] { return reader_of(manager()) != reader; }));
  append(entry("6", "y", "radio"));
  ASSERT_TRUE(reaches_mark("2"));
  EXPECT_EQ(status_of("radio"), "0\ny\n");
  EXPECT_EQ(counted(), 4);
}

TEST_F(Journal, GoesOnWhereJournalctlDied) {
  start_with_journal();
  append(entry("6", "1"));
  EXPECT_TRUE(becomes("0\n1\n"));
  const pid_t first = journalctl();
  ::kill(first, SIGKILL);
  append(entry("6", "2"));
  ASSERT_TRUE(reaches_mark("1"));
  EXPECT_NE(journalctl(), first);
  EXPECT_EQ(counted(), 3);
  EXPECT_EQ(manager().errors(), kNotRunning);
  EXPECT_THAT(read_file("/run/calls"), HasSubstr(" --after-cursor=s=1;i=2 --no-tail\n"));
}

TEST_F(Journal, IsReportedOnceWhereJournalctlIsMissing) {
  start({}, [] { ::setenv("PATH", "/nowhere", 1); });
  EXPECT_EQ(manager().errors(), kNotRunning);
  // Started again after a period.
  EXPECT_TRUE(eventually([&] { return journalctl() == -1; }));
  EXPECT_TRUE(eventually([&] { return journalctl() != -1; }));
  EXPECT_EQ(manager().errors(), kNotRunning);
}

class EndOfJournal : public Journal, public testing::WithParamInterface<int> {};

TEST_P(EndOfJournal, EndsJournalctl) {
  start_with_journal();
  const pid_t printer = journalctl();
  ASSERT_GT(printer, 0);
  manager().send(GetParam());
  manager().end();
  EXPECT_TRUE(ends(printer));
}

INSTANTIATE_TEST_SUITE_P(Journal, EndOfJournal, testing::Values(SIGTERM, SIGKILL));

}  // namespace
}  // namespace tarvio_test
