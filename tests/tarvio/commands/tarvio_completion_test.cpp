// Completion of the client's command line in bash.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/package_listing.h"
#include "support/tarvio.h"

namespace tarvio_test {
namespace {

using Words = std::vector<std::string>;

std::string quoted(const std::string& word) { return "'" + word + "'"; }

// What bash offers for the last of these words.
Words completions_of(const Words& words) {
  std::string line;
  for (const std::string& word : words) line += " " + quoted(word);
  const TempDir directory;
  write_file(directory / "script",
             "set -u; . '" TARVIO_COMPLETION "'; COMP_WORDS=(tarvio" + line +
                 "); COMP_CWORD=" + std::to_string(words.size()) +
                 "; _tarvio '" TARVIO_CLIENT
                 "'; "
                 "((${#COMPREPLY[@]})) && printf '%s\\n' \"${COMPREPLY[@]}\"; "
                 "complete -p tarvio >&2");
  const std::string command =
      "bash " + (directory / "script").string() + " 2>" + (directory / "errors").string();
  FILE* output = ::popen(command.c_str(), "r");
  Words offered;
  std::array<char, 4096> text;
  while (std::fgets(text.data(), static_cast<int>(text.size()), output) != nullptr) {
    offered.emplace_back(text.data());
    offered.back().pop_back();
  }
  ::pclose(output);
  EXPECT_EQ(read_file(directory / "errors"), "complete -F _tarvio tarvio\n");
  return offered;
}

using ClientCompletion = WithoutPackages;

TEST_F(ClientCompletion, OffersTheCommands) {
  EXPECT_EQ(completions_of({""}),
            (Words{"status", "start", "stop", "start-all", "stop-all", "list", "install", "remove",
                   "files", "check", "inspect", "pack", "areas", "backup", "restore"}));
  EXPECT_EQ(completions_of({"stop"}), (Words{"stop", "stop-all"}));
  EXPECT_EQ(completions_of({"--json", "l"}), Words{"list"});
  EXPECT_EQ(completions_of({"--timeout", "5", "l"}), Words{"list"});
  EXPECT_EQ(completions_of({"--timeout", "=", "5", "l"}), Words{"list"});
}

TEST_F(ClientCompletion, OffersTheOptionsOfTheCommand) {
  EXPECT_EQ(completions_of({"--"}), (Words{"--json", "--help", "--timeout", "--version"}));
  EXPECT_EQ(completions_of({"status", "-"}),
            (Words{"--json", "--help", "--timeout", "--apps", "--watch"}));
  EXPECT_EQ(completions_of({"start", "-"}), (Words{"--json", "--help", "--timeout"}));
  EXPECT_EQ(completions_of({"list", "-"}),
            (Words{"--json", "--help", "--category", "--subcategory", "--name"}));
  for (const char* command : {"install", "remove"}) {
    EXPECT_EQ(completions_of({command, "-"}), (Words{"--json", "--help", "--timeout", "--force"}));
  }
  EXPECT_EQ(completions_of({"files", "-"}), (Words{"--json", "--help", "--timeout"}));
  EXPECT_EQ(completions_of({"pack", "-"}), (Words{"--json", "--help", "--timeout", "--output"}));
  EXPECT_EQ(completions_of({"areas", "-"}), (Words{"--json", "--help"}));
  EXPECT_EQ(completions_of({"backup", "-"}),
            (Words{"--json", "--help", "--timeout", "--to", "--workdir", "--overwrite", "--verify",
                   "--quiet"}));
  EXPECT_EQ(completions_of({"restore", "-"}),
            (Words{"--json", "--help", "--timeout", "--yes", "--force", "--no-verify", "--workdir",
                   "--quiet"}));
}

TEST_F(ClientCompletion, OffersWordsForValues) {
  const Words categories = {"image", "application", "other"};
  EXPECT_EQ(completions_of({"list", "--category", ""}), categories);
  EXPECT_EQ(completions_of({"list", "--category", "="}), categories);
  EXPECT_EQ(completions_of({"list", "--category", "=", "a"}), Words{"application"});
  EXPECT_EQ(completions_of({"list", "--subcategory", ""}),
            (Words{"native", "java", "browser", "jsp", "other"}));
  EXPECT_EQ(completions_of({"list", "--timeout", ""}), Words{});
}

TEST_F(ClientCompletion, OffersTheApplications) {
  add_package("clock");
  add_package("clockwork");
  add_package("webserver");
  add_package("rootfs", "Image");
  for (const char* command : {"start", "stop", "status"}) {
    EXPECT_EQ(completions_of({command, ""}), (Words{"clock", "clockwork", "webserver"}));
    EXPECT_EQ(completions_of({command, "--json", "cl"}), (Words{"clock", "clockwork"}));
    EXPECT_EQ(completions_of({command, "clock", ""}), Words{});
  }
  EXPECT_EQ(completions_of({"start-all", ""}), Words{});
  EXPECT_EQ(completions_of({"list", ""}), Words{});
}

TEST_F(ClientCompletion, OffersThePackages) {
  add_package("clock");
  add_package("rootfs", "Image");
  for (const char* command : {"remove", "files"}) {
    EXPECT_EQ(completions_of({command, ""}), (Words{"clock", "rootfs"}));
    EXPECT_EQ(completions_of({command, "--json", "clock", "r"}), Words{"rootfs"});
  }
}

TEST_F(ClientCompletion, OffersPackageFiles) {
  const TempDir directory;
  const std::string begin = directory.path().string() + "/";
  write_file(directory / "clock.tbx", "");
  write_file(directory / "clock.txt", "");
  std::filesystem::create_directory(directory / "packages");
  const Words files = {begin + "packages", begin + "clock.tbx"};
  for (const char* command : {"install", "check", "inspect"}) {
    EXPECT_EQ(completions_of({command, begin}), files);
    EXPECT_EQ(completions_of({command, "a.tbx", begin}), files);
  }
  EXPECT_EQ(completions_of({"pack", begin}), Words{begin + "packages"});
  EXPECT_EQ(completions_of({"pack", "clock", begin}), Words{});
  EXPECT_EQ(completions_of({"pack", "clock", "-o", begin}), files);
  EXPECT_EQ(completions_of({"pack", "-o", "x.tbx", begin}), Words{begin + "packages"});
  EXPECT_EQ(completions_of({"backup", "kernel", "--to", begin}), files);
  EXPECT_EQ(completions_of({"restore", begin}), files);
  EXPECT_EQ(completions_of({"restore", "x.tbx", begin}), Words{});
  EXPECT_EQ(completions_of({"restore", "--workdir", begin}), Words{begin + "packages"});
}

TEST_F(ClientCompletion, OffersTheAreasThatAreNotNamedYet) {
  EXPECT_EQ(completions_of({"backup", ""}),
            (Words{"bootloader", "bootsetting", "kernel", "rootfs", "writable", "hibernation"}));
  EXPECT_EQ(completions_of({"backup", "--to", "x.tbx", "bootloader", "kernel", "boot"}),
            Words{"bootsetting"});
}

TEST_F(ClientCompletion, OffersNothingWithoutApplications) {
  EXPECT_EQ(completions_of({"start", ""}), Words{});
}

TEST_F(ClientCompletion, QuotesWhatTheShellWouldRun) {
  add_package("$(reboot)");
  add_package("a;b*");
  EXPECT_EQ(completions_of({"start", ""}), (Words{"\\$\\(reboot\\)", "a\\;b\\*"}));
}

}  // namespace
}  // namespace tarvio_test
