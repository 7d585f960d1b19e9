// tarvio keygen, and the secret keys that sign reads.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "program.h"
#include "signed_packages.h"
#include "support/children.h"
#include "support/programs/terminal.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

constexpr char kMinisignKeys[] = TARVIO_TEST_DATA "/minisign/";

class ClientKeygen : public SignedPackages {
 protected:
  Ran keygen(std::vector<std::string> options) const {
    options.insert(options.begin(), {"keygen", key("new")});
    return run_tarvio(options);
  }
  // Without the comment, in which minisign leaves out the zeros before the id.
  std::string key_in(const std::string& name) const {
    const std::string text = read_file(beside(name));
    return text.substr(text.find('\n'));
  }
  // The bytes of a secret key, changed by the work, as a key file again.
  void change_key(const std::string& change) const {
    shell(beside(""),
          "sed -n 2p vendor.key | base64 -d >bytes && " + change +
              " && { head -n 1 vendor.key; base64 -w 0 bytes; echo; } >new.key && rm bytes");
  }
  Ran sign_with(const std::string& key_file, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"sign", file(), "--key", key_file});
    return run_tarvio(options);
  }
  static mode_t mode_of(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
  }
};

TEST_F(ClientKeygen, MakesKeysThatMinisignUses) {
  const Ran run = keygen({"--no-password"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(run.output, "created key " + id_of("new") + ": " + key("new") + ".key (secret), " +
                            key("new") + ".pub\n");
  minisign("-S -W -s new.key -m clock.tbx -t 'package:clock version:1.0'");
  minisign("-V -p new.pub -m clock.tbx");
  minisign("-R -s new.key -p again.pub");
  EXPECT_EQ(key_in("again.pub"), key_in("new.pub"));
}

TEST_F(ClientKeygen, SaysWhatItMadeInJson) {
  const json result = json::parse(keygen({"--no-password", "--json"}).output);
  EXPECT_EQ(result, json({{"name", key("new")},
                          {"code", 0},
                          {"message", "Success"},
                          {"key_id", id_of("new")},
                          {"secret_key", key("new") + ".key"},
                          {"public_key", key("new") + ".pub"}}));
}

TEST_F(ClientKeygen, MakesAnotherKeyEachTime) { EXPECT_NE(id_of("vendor"), id_of("other")); }

TEST_F(ClientKeygen, KeepsTheSecretKeyFromOthers) {
  const Ran run = run_tarvio({"keygen", key("new"), "--no-password"}, [] { ::umask(0); });
  ASSERT_EQ(run.status, 0);
  EXPECT_EQ(mode_of(key("new") + ".key"), 0600U);
  EXPECT_EQ(mode_of(key("new") + ".pub"), 0644U);
  write_file(key("new") + ".key", "old");
  std::filesystem::permissions(key("new") + ".key", std::filesystem::perms(0666));
  ASSERT_EQ(keygen({"--no-password", "--force"}).status, 0);
  EXPECT_EQ(mode_of(key("new") + ".key"), 0600U);
}

TEST_F(ClientKeygen, ReplacesNoFileUnlessForced) {
  for (const char* ending : {".key", ".pub"}) {
    write_file(key("new") + ending, "precious");
    const Ran run = keygen({"--no-password"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "tarvio: cannot create the keys '" + key("new") + "': '" + key("new") +
                              ending + "' already exists; use --force to replace it (17)\n");
    EXPECT_EQ(read_file(key("new") + ending), "precious");
    std::filesystem::remove(key("new") + ending);
    EXPECT_FALSE(std::filesystem::exists(key("new") + ".key"));
  }
  // Not what a link leads to either.
  write_file(beside("elsewhere"), "precious");
  std::filesystem::create_symlink(beside("elsewhere"), key("new") + ".key");
  EXPECT_EQ(keygen({"--no-password"}).status, 1);
  EXPECT_EQ(keygen({"--no-password", "--force"}).status, 0);
  EXPECT_EQ(read_file(beside("elsewhere")), "precious");
  EXPECT_FALSE(std::filesystem::exists(key("new") + ".key.new"));
  EXPECT_FALSE(std::filesystem::exists(key("new") + ".pub.new"));
  EXPECT_EQ(sign_with(key("new") + ".key").status, 0);
}

TEST_F(ClientKeygen, NamesAPlaceThatCannotBeWritten) {
  const Ran run = run_tarvio({"keygen", "/nowhere/new", "--no-password"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("cannot write '/nowhere/new.key': No such file or directory"));
}

TEST_F(ClientKeygen, NeedsAPasswordOrItsAbsence) {
  const Ran run = run_tarvio({"keygen", key("new")}, [] { ::close(STDIN_FILENO); });
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("cannot ask for the password without a terminal; use "
                                    "--password-file FILE (1)\n"));
  write_file(beside("empty"), "\nsecond line\n");
  EXPECT_THAT(keygen({"--password-file", beside("empty")}).errors,
              HasSubstr("the password is empty; use --no-password for a key without one (22)\n"));
  EXPECT_THAT(keygen({"--password-file", beside("nowhere")}).errors,
              HasSubstr("cannot read the password from '" + beside("nowhere").string() +
                        "': No such file or directory (2)\n"));
  write_file(beside("endless"), std::string(5000, 'x'));
  EXPECT_THAT(keygen({"--password-file", beside("endless")}).errors,
              HasSubstr("the password is too long: at most 1024 bytes (7)\n"));
  const Ran both = keygen({"--password-file", "x", "--no-password"});
  EXPECT_EQ(both.status, 64);
  EXPECT_THAT(both.errors, HasSubstr("option '--password-file' contradicts '--no-password'"));
  EXPECT_FALSE(std::filesystem::exists(key("new") + ".key"));
}

// Opening a key with a password takes a gibibyte of memory. A process that may not have so much
// makes one that takes less.
#if !defined TARVIO_ADDRESS_SANITIZER && !defined TARVIO_THREAD_SANITIZER

void limit_memory() {
  const rlimit limit = {64UL << 20, 64UL << 20};
  EXPECT_EQ(::setrlimit(RLIMIT_AS, &limit), 0);
}

TEST_F(ClientKeygen, EncryptsAKeyThatMinisignOpens) {
  write_file(beside("password"), "sesame\nnot this\n");
  const Ran run =
      run_tarvio({"keygen", key("new"), "--password-file", beside("password")}, limit_memory);
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(run.errors,
              MatchesRegex("tarvio: the password of '.*new.key' costs only [0-9]+ MiB of memory to "
                           "try, not 1024, because no more is free; use a longer password, or make "
                           "the key on another machine\n"));
  EXPECT_EQ(sign_with(key("new") + ".key", {"--password-file", beside("password")}).status, 0);
  minisign("-V -p new.pub -m clock.tbx");
  shell(beside(""), "echo sesame | minisign -S -s new.key -m clock.tbx >/dev/null");
  minisign("-V -p new.pub -m clock.tbx");
  shell(beside(""), "! echo wrong | minisign -S -s new.key -m clock.tbx");
}

// A terminal that shows what is typed, and a client that asks there.
class KeygenOnATerminal : public ClientKeygen {
 protected:
  KeygenOnATerminal() { set_echo(); }
  ~KeygenOnATerminal() override { EXPECT_TRUE(has_echo()); }

  void start(const std::vector<std::string>& arguments) {
    std::vector<const char*> argv = {"tarvio"};
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    client_ = ::fork();
    if (client_ != 0) return;
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      ::dup2(terminal_.line(), stream);
    }
    limit_memory();
    ::_exit(client::run_program(static_cast<int>(argv.size()), argv.data()));
  }
  // Types as soon as the question is there: what was typed before is dropped.
  void answer(const std::string& question, const std::string& text) {
    EXPECT_TRUE(eventually([&] {
      shown_ += terminal_.shown();
      return shown_.find(question) != std::string::npos;
    })) << shown_;
    shown_.clear();
    terminal_.type(text);
  }
  // What it ends with, and shows until then.
  int status() {
    const int status = exit_status_of(client_);
    shown_ += terminal_.shown();
    return status;
  }
  bool has_echo() const {
    termios mode = {};
    EXPECT_EQ(::tcgetattr(terminal_.line(), &mode), 0);
    return (mode.c_lflag & ECHO) != 0;
  }

  pid_t client_ = -1;
  std::string shown_;

 private:
  void set_echo() const {
    termios mode = {};
    EXPECT_EQ(::tcgetattr(terminal_.line(), &mode), 0);
    mode.c_lflag |= ECHO;
    EXPECT_EQ(::tcsetattr(terminal_.line(), TCSANOW, &mode), 0);
  }

  const Terminal terminal_;
};

TEST_F(KeygenOnATerminal, AsksForANewPasswordTwiceAndShowsNone) {
  start({"keygen", key("new")});
  answer("Password of " + key("new") + ".key: ", "sesame\n");
  answer("Again: ", "sesame\n");
  EXPECT_EQ(status(), 0);
  EXPECT_THAT(shown_, HasSubstr("created key " + id_of("new")));
  EXPECT_THAT(shown_, Not(HasSubstr("sesame")));
  start({"sign", file(), "--key", key("new") + ".key"});
  answer("Password of " + key("new") + ".key: ", "sesame\n");
  EXPECT_EQ(status(), 0);
  EXPECT_THAT(shown_, Not(HasSubstr("sesame")));
}

TEST_F(KeygenOnATerminal, MakesNoKeyOfTwoPasswords) {
  start({"keygen", key("new")});
  answer("new.key: ", "sesame\n");
  answer("Again: ", "sesami\n");
  EXPECT_EQ(status(), 1);
  EXPECT_THAT(shown_, HasSubstr("the two passwords differ"));
  EXPECT_FALSE(std::filesystem::exists(key("new") + ".key"));
}

TEST_F(KeygenOnATerminal, LeavesTheTerminalAsItWasAfterASignal) {
  start({"keygen", key("new")});
  answer("new.key: ", "ses");
  EXPECT_FALSE(has_echo());
  ::kill(client_, SIGINT);
  EXPECT_EQ(status(), -1);
  EXPECT_FALSE(std::filesystem::exists(key("new") + ".key"));
}

#endif

TEST_F(ClientKeygen, ReadsThePasswordOfAKeyOfMinisign) {
  const std::string secret = std::string(kMinisignKeys) + "password.key";
  write_file(beside("password"), "sesame");
  const Ran run = sign_with(secret, {"--password-file", beside("password")});
  EXPECT_EQ(run.status, 0) << run.errors;
  minisign("-V -p " + std::string(kMinisignKeys) + "password.pub -m clock.tbx");
  std::filesystem::remove(signature());

  write_file(beside("password"), "sesame\r\n");
  EXPECT_EQ(sign_with(secret, {"--password-file", beside("password")}).status, 0);
  std::filesystem::remove(signature());

  write_file(beside("password"), "sesame \n");
  const Ran wrong = sign_with(secret, {"--password-file", beside("password")});
  EXPECT_EQ(wrong.status, 1);
  EXPECT_EQ(wrong.errors, "tarvio: secret key '" + secret + "' cannot be opened: wrong password\n");
  EXPECT_FALSE(std::filesystem::exists(signature()));
}

TEST_F(ClientKeygen, ReadsThePasswordFromStandardInput) {
  write_file(beside("password"), "sesame\n");
  const int descriptor = ::open(beside("password").c_str(), O_RDONLY);
  const Ran run = run_tarvio({"sign", file(), "--key", std::string(kMinisignKeys) + "password.key",
                              "--password-file", "-"},
                             [=] { ::dup2(descriptor, STDIN_FILENO); });
  ::close(descriptor);
  EXPECT_EQ(run.status, 0) << run.errors;
}

TEST_F(ClientKeygen, SignsWithKeysOfMinisignWithoutAPassword) {
  minisign("-G -W -p m.pub -s m.key");
  EXPECT_EQ(sign_with(key("m") + ".key").status, 0);
  minisign("-V -p m.pub -m clock.tbx");
}

TEST_F(ClientKeygen, RefusesASecretKeyThatIsDamaged) {
  const struct {
    const char* change;
    const char* why;
  } rows[] = {
      {"truncate -s 100 bytes", "is damaged: line 2 is not base64 of 158 bytes"},
      {"echo more >>bytes", "is damaged: line 2 is not base64 of 158 bytes"},
      {"printf X | dd of=bytes conv=notrunc status=none", "is not a secret key of Ed25519"},
      {"printf XX | dd of=bytes conv=notrunc status=none bs=1 seek=2",
       "is not a secret key of Ed25519"},
      {"printf XX | dd of=bytes conv=notrunc status=none bs=1 seek=4",
       "is not a secret key of Ed25519"},
      {"printf Sc | dd of=bytes conv=notrunc status=none bs=1 seek=2",
       "its password cost is too high"},
      {"printf 'Sc' | dd of=bytes conv=notrunc status=none bs=1 seek=2; "
       "printf '\\377\\377\\377\\377\\377\\377\\377\\377' | "
       "dd of=bytes conv=notrunc status=none bs=1 seek=46",
       "its password cost is too high"},
      {"printf x | dd of=bytes conv=notrunc status=none bs=1 seek=60", "its checksum is wrong"},
      {"printf x | dd of=bytes conv=notrunc status=none bs=1 seek=70; "
       "dd if=/dev/zero of=bytes conv=notrunc status=none bs=1 seek=126 count=32",
       "its two halves do not belong together"},
  };
  for (const auto& [change, why] : rows) {
    change_key(change);
    const Ran run = sign_with(key("new") + ".key");
    EXPECT_EQ(run.status, 1) << change;
    EXPECT_THAT(run.errors, HasSubstr("tarvio: secret key '" + key("new") + ".key' is damaged"));
    EXPECT_THAT(run.errors, HasSubstr(why)) << change;
  }
  EXPECT_THAT(sign_with(beside("nowhere")).errors, HasSubstr("nowhere' does not exist\n"));
  EXPECT_THAT(sign_with(key("vendor") + ".pub").errors, HasSubstr("is damaged: line 2"));
  write_file(beside("huge"), std::string(100000, 'x'));
  EXPECT_THAT(sign_with(beside("huge")).errors, HasSubstr("is too large"));
  EXPECT_FALSE(std::filesystem::exists(signature()));
}

}  // namespace
}  // namespace tarvio_test
