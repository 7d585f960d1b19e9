// Completion of the client's command line in the shells.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "commands/command_list.h"
#include "shell_completion.h"
#include "support/files.h"
#include "support/packages/package_listing.h"
#include "support/programs/tarvio.h"
#include "support/programs/terminal.h"

namespace tarvio_test {
namespace {

TEST(ClientCompletions, AreThoseOfTheCommands) { expect_completions_of_the_commands(); }

TEST(ClientCompletions, HaveTheWordsOfTheHelp) { expect_words_of_the_help(); }

// Asks one of the shells, where it is installed.
class ClientCompletion : public WithoutPackages, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    if (!is_installed(GetParam())) GTEST_SKIP() << GetParam() << " is not installed";
    ::setenv("HOME", place_.path().c_str(), 1);
    std::filesystem::current_path(place_.path());
  }

  static bool is_fish() { return GetParam() == std::string("fish"); }

  Words offered(const Line& line) const {
    return offered_by(GetParam(), TARVIO_CLIENT, line, place_.path());
  }

  const TempDir place_;

 private:
  const Terminal terminal_;
};

INSTANTIATE_TEST_SUITE_P(Shells, ClientCompletion, testing::Values("bash", "zsh", "fish"),
                         [](const auto& shell) { return std::string(shell.param); });

TEST_P(ClientCompletion, OffersTheCommands) {
  Words all;
  for (const client::Command* command : client::all_commands()) all.insert(command->word);
  EXPECT_EQ(offered({""}), all);
  EXPECT_EQ(offered({"stop"}), (Words{"stop", "stop-all"}));
  EXPECT_EQ(offered({"help", ""}), all);
  EXPECT_EQ(offered({"help", "st"}), (Words{"start", "start-all", "status", "stop", "stop-all"}));
  EXPECT_EQ(offered({"--json", "l"}), (Words{"list", "logs"}));
  EXPECT_EQ(offered({"--timeout", "5", "l"}), (Words{"list", "logs"}));
  EXPECT_EQ(offered({"--timeout=5", "l"}), (Words{"list", "logs"}));
  EXPECT_EQ(offered({"start-all", "--wait-manager=5", "--js"}), Words{"--json"});
}

TEST_P(ClientCompletion, OffersTheOptionsOfTheProgram) {
  EXPECT_EQ(offered({"--"}), (Words{"--json", "--quiet", "--help", "--timeout", "--version"}));
}

TEST_P(ClientCompletion, OffersTheOptionsOfTheCommand) {
  EXPECT_EQ(offered({"status", "-"}), (Words{"--json", "--quiet", "--help", "--timeout",
                                             "--wait-manager", "--apps", "--watch", "--wide"}));
  EXPECT_EQ(offered({"start", "-"}),
            (Words{"--json", "--quiet", "--help", "--timeout", "--wait-manager", "--match"}));
  EXPECT_EQ(offered({"list", "-"}),
            (Words{"--json", "--quiet", "--help", "--category", "--subcategory", "--name"}));
  EXPECT_EQ(offered({"install", "-"}), (Words{"--json", "--quiet", "--help", "--timeout",
                                              "--wait-manager", "--force", "--require-signature"}));
  EXPECT_EQ(offered({"remove", "-"}), (Words{"--json", "--quiet", "--help", "--timeout",
                                             "--wait-manager", "--force", "--keep-running"}));
  EXPECT_EQ(offered({"files", "-"}), (Words{"--json", "--quiet", "--help", "--timeout"}));
  EXPECT_EQ(offered({"pack", "-"}), (Words{"--json", "--quiet", "--help", "--timeout", "--output",
                                           "--sign", "--password-file"}));
  EXPECT_EQ(offered({"areas", "-"}), (Words{"--json", "--quiet", "--help"}));
  EXPECT_EQ(offered({"backup", "-"}), (Words{"--json", "--help", "--timeout", "--to", "--workdir",
                                             "--overwrite", "--verify", "--quiet"}));
  EXPECT_EQ(offered({"doctor", "-"}), (Words{"--json", "--quiet", "--help", "--timeout"}));
  EXPECT_EQ(offered({"restore", "-"}), (Words{"--json", "--help", "--timeout", "--yes", "--force",
                                              "--no-verify", "--workdir", "--quiet"}));
}

TEST_P(ClientCompletion, OffersWordsForValues) {
  const Words categories = {"image", "application", "other"};
  EXPECT_EQ(offered({"list", "--category", ""}), categories);
  EXPECT_EQ(offered({"list", "--category="}), categories);
  EXPECT_EQ(offered({"list", "--category=a"}), Words{"application"});
  EXPECT_EQ(offered({"list", "--subcategory", ""}),
            (Words{"native", "java", "browser", "jsp", "other"}));
  EXPECT_EQ(offered({"status", "--timeout", ""}), Words{});
  EXPECT_EQ(offered({"wait", "--state", ""}),
            (Words{"normal", "warning", "error", "gone", "running", "ended"}));
}

TEST_P(ClientCompletion, OffersTheApplications) {
  add_package("clock");
  add_package("clockwork");
  add_package("webserver");
  add_package("rootfs", "Image");
  for (const char* command : {"start", "stop", "status", "restart", "wait", "is-running", "logs"}) {
    EXPECT_EQ(offered({command, ""}), (Words{"clock", "clockwork", "webserver"}));
    EXPECT_EQ(offered({command, "--json", "cl"}), (Words{"clock", "clockwork"}));
    EXPECT_EQ(offered({command, "clock", ""}), Words{});
  }
  EXPECT_EQ(offered({"start-all", ""}), Words{});
  EXPECT_EQ(offered({"list", ""}), Words{});
}

TEST_P(ClientCompletion, OffersThePackagesThatAreNotNamedYet) {
  add_package("clock");
  add_package("rootfs", "Image");
  for (const char* command : {"remove", "files"}) {
    EXPECT_EQ(offered({command, ""}), (Words{"clock", "rootfs"}));
    EXPECT_EQ(offered({command, "--json", "clock", ""}), Words{"rootfs"});
  }
}

TEST_P(ClientCompletion, OffersPackageFiles) {
  write_file(place_ / "clock.tbx", "");
  write_file(place_ / "clock.txt", "");
  std::filesystem::create_directory(place_ / "packages");
  const Words files = {"packages", "clock.tbx"};
  for (const char* command : {"install", "check", "inspect"}) {
    EXPECT_EQ(offered({command, ""}), files);
    EXPECT_EQ(offered({command, "a.tbx", ""}), files);
  }
  EXPECT_EQ(offered({"pack", "clock", "-o", ""}), files);
  EXPECT_EQ(offered({"backup", "kernel", "--to", ""}), files);
  EXPECT_EQ(offered({"backup", "kernel", "--to=c"}), Words{"clock.tbx"});
  EXPECT_EQ(offered({"restore", ""}), files);
  EXPECT_EQ(offered({"restore", "x.tbx", ""}), Words{});
}

TEST_P(ClientCompletion, OffersDirectories) {
  write_file(place_ / "clock.tbx", "");
  std::filesystem::create_directory(place_ / "packages");
  EXPECT_EQ(offered({"pack", ""}), Words{"packages"});
  EXPECT_EQ(offered({"pack", "clock", ""}), Words{});
  EXPECT_EQ(offered({"pack", "-o", "x.tbx", ""}), Words{"packages"});
  EXPECT_EQ(offered({"restore", "--workdir", ""}), Words{"packages"});
}

TEST_P(ClientCompletion, OffersTheAreasThatAreNotNamedYet) {
  EXPECT_EQ(offered({"backup", ""}),
            (Words{"bootloader", "bootsetting", "kernel", "rootfs", "writable", "hibernation"}));
  EXPECT_EQ(offered({"backup", "--to", "x.tbx", "bootloader", "kernel", "boot"}),
            Words{"bootsetting"});
}

TEST_P(ClientCompletion, OffersNothingWithoutApplications) {
  EXPECT_EQ(offered({"start", ""}), Words{});
}

// fish quotes what it inserts, and not what it lists.
TEST_P(ClientCompletion, RunsNothingThatAPackageIsCalled) {
  add_package("$(reboot)");
  add_package("a;b*");
  const Words quoted = {"\\$\\(reboot\\)", "a\\;b\\*"};
  EXPECT_EQ(offered({"start", ""}), is_fish() ? (Words{"$(reboot)", "a;b*"}) : quoted);
}

}  // namespace
}  // namespace tarvio_test
