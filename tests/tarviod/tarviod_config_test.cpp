// The configuration file of tarviod.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/conf_pairs.h"
#include "support/files.h"
#include "support/programs/watched_log.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

class Config : public WatchedLog {
 protected:
  // Waits until the manager has read its file again, which replaces its reader.
  void reload() {
    const pid_t before = reader_of(manager());
    manager().send(SIGHUP);
    EXPECT_TRUE(eventually([&] {
      // ThreadSanitizer lets a signal that meets the com server's thread wait for the next request.
      (void)status_of("clock");
      return reader_of(manager()) != before;
    }));
  }
};

TEST_F(Config, MayBeMissing) {
  fs::remove(kConfigFile);
  start();
  EXPECT_EQ(manager().errors(), "");
  EXPECT_EQ(reader_of(manager()), -1);
}

TEST_F(Config, MayHaveComments) {
  write_file(kConfigFile,
             "# The log of the device.\r\n\r\n  log_period:\t1 ; second\n"
             "hook.clock: clock # the clock\n hook.mark :mark");
  start();
  append_to_log(log_line("warning", "x"));
  EXPECT_TRUE(becomes("1\nx\n"));
}

TEST_F(Config, HasASample) {
  start({"--config", TARVIO_SANDBOX_TOOLS "/../../packaging/tarviod.conf"});
  EXPECT_EQ(manager().errors(), "");
}

TEST_F(Config, MayHaveALongPeriodAndALongName) {
  const std::string name(127, 'x');
  write_file(kConfigFile, "log_period: 86400\nhook.clock: " + name + "\n");
  start();
  append_to_log(log_line("warning", "y"));
  EXPECT_TRUE(becomes("1\ny\n", name));
}

TEST_F(Config, NamesTheLog) {
  write_file(kConfigFile, "log_file: /var/log/user.log\nlog_period: 1\nhook.clock: clock\n");
  write_file("/var/log/user.log", "");
  start();
  write_file("/var/log/user.log", log_line("warning", "x"));
  EXPECT_TRUE(becomes("1\nx\n"));
}

class ConfigOption : public WatchedLog, public testing::WithParamInterface<const char*> {};

TEST_P(ConfigOption, NamesTheFile) {
  write_file(kConfigFile, "nonsense\n");
  write_file("/etc/tarvio/other.conf", "log_period: 1\nhook.clock: clock\n");
  fs::current_path("/etc");
  start({GetParam(), "tarvio/other.conf", "--log-level=2"});
  append_to_log(log_line("warning", "x"));
  EXPECT_TRUE(becomes("1\nx\n"));
}

INSTANTIATE_TEST_SUITE_P(Config, ConfigOption, testing::Values("--config", "-c"));

TEST_F(Config, IsRefusedWhenTheNamedFileIsMissing) {
  const Ended run = run_tarviod({"--config", "/etc/tarvio/other.conf"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarviod: /etc/tarvio/other.conf: No such file or directory: write it\n");
}

TEST_F(Config, IsRefusedWhenItCannotBeRead) {
  // A process has no memory at address 0.
  const Ended run = run_tarviod({"--config", "/proc/self/mem"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarviod: /proc/self/mem: Input/output error: make it readable\n");
}

TEST_F(Config, IsRefusedWhenItIsADirectory) {
  const Ended run = run_tarviod({"--config", "/etc/tarvio"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors, "tarviod: /etc/tarvio: is a directory: name a file\n");
}

constexpr char kPeriod[] = "log_period is not a number of seconds: write one from 0 (off) to 86400";
constexpr char kUnknown[] =
    "unknown key: use log_source, log_file, log_format, log_period, hook.TEXT or level.TEXT";
constexpr char kLevel[] =
    "unknown level: write debug, info, notice, warning, err, crit, alert or emerg";
constexpr char kNoHook[] = "level without a hook of the same text: add hook.TEXT: APPLICATION";
constexpr char kNoColon[] = "no colon in the line: write KEY: VALUE";
constexpr char kSeveralWords[] = "value of several words: write one word";
constexpr char kZeroByte[] = "NUL byte in the line: write the file as plain text";

std::string at(int line, const char* complaint) {
  return ":" + std::to_string(line) + ": " + complaint;
}

TEST(WrongConfig, IsRefusedWithItsLine) {
  using std::string_literals::operator""s;
  const std::string long_name(128, 'x');
  struct Row {
    std::string text;
    std::string complaint;
  };
  const Row rows[] = {
      {"clock\n", at(1, kNoColon)},
      {"log_period: 1\n\n# no line\n  hook.clock clock\n", at(4, kNoColon)},
      {"log_period: 1\rhook\r\nx\n", at(2, kNoColon)},
      {"hook.clock # : clock\n", at(1, kNoColon)},
      {"log_period: 1\nhook.clock: my clock\n", at(2, kSeveralWords)},
      {"log_file: /var/log/other log\n", at(1, kSeveralWords)},
      {"log_period: 1\t2\n", at(1, kSeveralWords)},
      {"hook.clock: clock: radio\n", at(1, kSeveralWords)},
      {"log_period: 1\nhook.clock: clock\0x\n"s, at(2, kZeroByte)},
      {"#\0\n"s, at(1, kZeroByte)},
      {"log_period: 1\n\0\0\0\0"s, at(2, kZeroByte)},
      {"log_period: x\n", at(1, kPeriod)},
      {"log_period:\n", at(1, kPeriod)},
      {"log_period: -1\n", at(1, kPeriod)},
      {"log_period: +1\n", at(1, kPeriod)},
      {"log_period: 1s\n", at(1, kPeriod)},
      {"log_period: 86401\n", at(1, kPeriod)},
      {"log_period: 99999999999999999999\n", at(1, kPeriod)},
      {"log_period: 1\n#\nlog_period: y\n", at(3, kPeriod)},
      {"log_file: messages\n", at(1, "log_file is not an absolute path: begin it with '/'")},
      {"log_file:\n", at(1, "log_file is not an absolute path: begin it with '/'")},
      {"log_source: syslog\n", at(1, "unknown log_source: write file or journal")},
      {"log_source:\n", at(1, "unknown log_source: write file or journal")},
      {"log_format: json\n",
       at(1, "unknown log_format: write auto, busybox, traditional, iso or rfc5424")},
      {"log_format:\n",
       at(1, "unknown log_format: write auto, busybox, traditional, iso or rfc5424")},
      {"hook.clock: clock\nlevel.clock: error\n", at(2, kLevel)},
      {"hook.clock: clock\nlevel.clock:\n", at(2, kLevel)},
      {"hook.clock: clock\nlevel.clok: err\n", at(2, kNoHook)},
      {"level.: err\nhook.clock: clock\n", at(1, kNoHook)},
      {"log_period: 1\nlog_perod: 1\n", at(2, kUnknown)},
      {": 1\n", at(1, kUnknown)},
      {"\n\tthe hook: clock", at(2, kUnknown)},
      {"hook: clock\n", at(1, kUnknown)},
      {"hook.: clock\n", at(1, "hook without a text: write hook.TEXT: APPLICATION")},
      {"hook.clock:\n", at(1, "hook without an application: write hook.TEXT: APPLICATION")},
      {"hook.clock: " + long_name + "\n",
       at(1, "application name too long: use the package's, of at most 127 bytes")},
      {"x" + long_name + long_name + long_name + ": x\n", at(1, kUnknown)},
  };
  for (const Row& row : rows) {
    write_file(kConfigFile, row.text);
    const Ended run = run_tarviod({});
    EXPECT_EQ(run.status, 1) << row.text;
    EXPECT_EQ(run.errors, std::string("tarviod: ") + kConfigFile + row.complaint + "\n");
    EXPECT_EQ(run.output, "");
  }
}

// What the manager watches, as the arguments of its log reader: log, format, period, and the hooks.
std::vector<std::string> watched_by(const Tarviod& manager) {
  const std::string words = read_file("/proc/" + std::to_string(reader_of(manager)) + "/cmdline");
  std::vector<std::string> watched;
  for (size_t at = words.find('\0') + 1; at < words.size(); at = words.find('\0', at) + 1)
    watched.emplace_back(words.c_str() + at);
  return watched;
}

std::vector<std::string> watched_with(const Conf& conf) {
  const auto value_of = [&](const char* key, const char* otherwise) {
    const std::string value = tq_conf_read(conf.get(), key);
    return value.empty() ? otherwise : value;
  };
  std::vector<std::string> watched = {value_of("log_file", "/var/log/messages"),
                                      value_of("log_format", "auto"), value_of("log_period", "5")};
  for (const auto& [key, value] : pairs_of(conf)) {
    if (key.starts_with("hook."))
      watched.insert(watched.end(),
                     {key.substr(5), value, value_of(("level." + key.substr(5)).c_str(), "-")});
  }
  return watched;
}

// The manager parses the file itself, to know the numbers of its lines.
TEST(ConfigFile, IsReadAsTheLibraryReadsIt) {
  using std::string_literals::operator""s;
  const std::string long_text(5000, 'x');
  // 4096 bytes are read at once: they end within a line end, and within a key.
  const std::string to_line_end = "#" + std::string(4094, 'x') + "\r\n";
  const std::string to_key = "#" + std::string(4090, 'x') + "\n";
  for (const std::string& text : {
           "hook.a:b"s,
           "hook.a: b\nhook.c: d\n"s,
           "hook.a: b\rhook.c: d\r\nhook.e: f\n\rhook.g: h"s,
           "\n\r\n\r \t \n  hook.a  :  b  \n"s,
           "\thook.a\t:\tb\t\n"s,
           "old name hook.a: b\n"s,
           "hook.a:b:c:d\nhook.c: d:e\n"s,
           "hook.a: b#c: d\nhook.c: d ; e\n#hook.e: f\n ;\n"s,
           "hook.a: b\nhook.c: d\nhook.a: e\nlog_period: 1\nlog_period: 2\n"s,
           "hook.a: b\vc\nhook.\x80\xff: \xc3\xa9\n"s,
           "hook." + long_text + ": b\n" + long_text + " hook.a: c\n",
           to_line_end + "hook.a: b\n",
           to_key + "hook.a: b\n",
           "# only a comment"s,
           "hook.a: b\nhook.c d\n"s,
           "hook.a#: b\n"s,
       }) {
    write_file(kConfigFile, text);
    const Conf conf(tq_conf_open2(kConfigFile));
    Tarviod manager;
    if (conf == nullptr) {
      EXPECT_EQ(manager.end(), 1) << text;
      EXPECT_THAT(manager.errors(), testing::HasSubstr(kNoColon));
    } else if (pairs_of(conf).empty()) {
      ASSERT_TRUE(manager.answers());
      EXPECT_EQ(reader_of(manager), -1);
    } else {
      ASSERT_TRUE(manager.answers()) << text;
      EXPECT_EQ(watched_by(manager), watched_with(conf)) << text;
    }
  }
}

TEST_F(Config, IsReadAgainAtSighup) {
  start();
  append_to_log(log_line("warning", "1"));
  EXPECT_TRUE(becomes("1\n1\n"));
  write_file(kConfigFile, "log_period: 1\nhook.radio: radio\nhook.mark: mark\n");
  reload();
  append_to_log(log_line("warning", "2") + log_line("warning", "3", "radio"));
  EXPECT_TRUE(becomes("1\n3\n", "radio"));
  EXPECT_EQ(status_of("clock"), "1\n1\n");
}

TEST_F(Config, ReportsThatItWasReadAgain) {
  start();
  const std::string before = manager().output();
  reload();
  EXPECT_TRUE(eventually([&] {
    return manager().output() == before + "tarviod: /etc/tarvio/tarviod.conf: read again\n";
  }));
}

TEST_F(Config, NamesApplicationsThatAreNotInstalled) {
  const std::string unknown =
      ": no application of this name is installed: write the whole name of its package\n";
  write_file(kConfigFile, "log_period: 1\nhook.web: web\nhook.clock: clock\n\nhook.x: clock2\n");
  start();
  std::string expected = "tarviod: /etc/tarvio/tarviod.conf:2: web" + unknown +
                         "tarviod: /etc/tarvio/tarviod.conf:5: clock2" + unknown;
  EXPECT_EQ(manager().errors(), expected);
  append_to_log(log_line("warning", "x", "web"));
  EXPECT_TRUE(becomes("1\nx\n", "web"));
  write_file(kConfigFile, "log_period: 1\nhook.web: clo\nhook.clock: clock\n");
  reload();
  expected += "tarviod: /etc/tarvio/tarviod.conf:2: clo" + unknown;
  EXPECT_TRUE(eventually([&] { return manager().errors() == expected; }));
}

class CheckConfig : public WatchedLog {
 protected:
  static constexpr char kValid[] = "tarviod: /etc/tarvio/tarviod.conf: valid\n";
};

TEST_F(CheckConfig, AcceptsAFileWithoutMistakes) {
  const Ended run = run_tarviod({"--check-config"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, kValid);
  EXPECT_EQ(run.errors, "");
  EXPECT_FALSE(fs::exists("/usr/local/share/tarvio/ipcom"));
}

TEST_F(CheckConfig, ReportsAMistake) {
  write_file(kConfigFile, "log_period: 1\nhook.clock clock\n");
  const Ended run = run_tarviod({"--check-config"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors, std::string("tarviod: ") + kConfigFile + ":2: " + kNoColon + "\n");
}

TEST_F(CheckConfig, TakesTheFileThatIsNamed) {
  write_file(kConfigFile, "nonsense\n");
  write_file("/etc/tarvio/other.conf", "hook.clock: clock\n");
  const Ended run = run_tarviod({"-c", "/etc/tarvio/other.conf", "--check-config"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "tarviod: /etc/tarvio/other.conf: valid\n");
}

TEST_F(CheckConfig, NamesApplicationsThatAreNotInstalled) {
  write_file(kConfigFile, "hook.web: web\n");
  const Ended run = run_tarviod({"--check-config"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, kValid);
  EXPECT_THAT(run.errors, testing::StartsWith("tarviod: /etc/tarvio/tarviod.conf:1: web: "));
}

TEST_F(CheckConfig, LeavesTheRunningManagerAlone) {
  start();
  EXPECT_EQ(run_tarviod({"--check-config"}).status, 0);
  EXPECT_EQ(listening_process(), manager().pid());
  append_to_log(log_line("warning", "x"));
  EXPECT_TRUE(becomes("1\nx\n"));
}

TEST_F(Config, LosesNoLineWhenItIsReadAgain) {
  start();
  append_to_log(log_line("info", "1"));
  EXPECT_TRUE(becomes("0\n1\n"));
  for (int round = 0; round < 5; ++round) {
    append_to_log(log_line("info", "2"));
    reload();
    append_to_log(log_line("info", "3"));
  }
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(counted(), 11);
}

TEST_F(Config, StartsAtTheEndOfAnotherLog) {
  write_file("/var/log/user.log", log_line("err", "old"));
  start();
  write_file(kConfigFile, "log_file: /var/log/user.log\nlog_period: 1\nhook.clock: clock\n");
  const pid_t before = reader_of(manager());
  manager().send(SIGHUP);
  next_reader(manager(), before, "/var/log/user.log");
  write_file("/var/log/user.log", log_line("err", "old") + log_line("warning", "new"));
  EXPECT_TRUE(becomes("1\nnew\n"));
}

TEST_F(Config, IsKeptWhenTheNewOneIsWrong) {
  start();
  const pid_t reader = reader_of(manager());
  write_file(kConfigFile, "log_period: 1\nhook.clock clock\n");
  manager().send(SIGHUP);
  const std::string complaint = std::string("tarviod: ") + kConfigFile + ":2: " + kNoColon + "\n";
  EXPECT_TRUE(eventually([&] { return manager().errors() == complaint; }));
  append_to_log(log_line("warning", "x"));
  EXPECT_TRUE(becomes("1\nx\n"));
  EXPECT_EQ(reader_of(manager()), reader);
}

TEST_F(Config, DisablesAndEnablesTheMonitor) {
  start();
  write_file(kConfigFile, "log_period: 0\nhook.clock: clock\n");
  reload();
  append_to_log(log_line("warning", "while it is disabled"));
  write_file(kConfigFile, "log_period: 1\nhook.clock: clock\nhook.mark: mark\n");
  reload();
  next_reader(manager(), -1);
  ASSERT_TRUE(catches_up());
  EXPECT_EQ(counted(), 0);
}

TEST_F(Config, IsNotReadAgainWhereSighupIsIgnored) {
  Tarviod manager({}, [] { ::signal(SIGHUP, SIG_IGN); });
  ASSERT_TRUE(manager.answers());
  EXPECT_NE(signals_of(manager.pid(), "SigIgn") & 1U << (SIGHUP - 1), 0U);
}

}  // namespace
}  // namespace tarvio_test
