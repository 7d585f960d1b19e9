// The client's commands on hostile package files.
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sodium.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "hostile_packages.h"
#include "signatures/minisign.h"
#include "signatures/secret_key.h"
#include "support/files.h"
#include "support/flash/flash_device.h"
#include "support/memory_bound.h"
#include "support/packages/opkg_tool.h"
#include "support/packages/package_listing.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"
#include "support/users.h"
#include "support/work_directory.h"
#include "terminal/printable_text.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using nlohmann::json;

constexpr char kTemporaryBytes[] = "size=96m";
constexpr char kKeys[] = "/etc/tarvio/keys";
constexpr char kPolicy[] = "/etc/tarvio/tarvio.conf";
constexpr char kPublicKey[] = "/etc/tarvio/hostile.pub";
constexpr uid_t kUser = 1000;
constexpr int kCannotRun = 126;
// The status for a package whose name or version is not the one that was signed.
constexpr int kNotTrusted = 6;
constexpr long kMaxResidentKiB = 96 * 1024;

// Whether a command took the package, by its code and its message.
bool is_done(const json& outcome) { return outcome["code"] == 0; }

// The script that stands for opkg installs nothing.
bool was_handed_to_opkg(const json& outcome) {
  return outcome["message"].get<std::string>().starts_with("opkg reported no recognised error, ");
}

bool has_written(const json& outcome) {
  return !outcome["message"].get<std::string>().ends_with("; nothing was written");
}

std::string only_an_image(const HostilePackage& package) {
  return package.is_image() || package.is_random() ? "any" : "no";
}

// Without a bound tar has room for a name of 128 MiB.
std::string taken_by_opkg(const HostilePackage& package) {
  const bool needs_memory = package.file.find("bomb-header-of-data") != std::string::npos;
  return needs_memory && !is_memory_bounded() ? "any" : package.is_taken;
}

std::string never(const HostilePackage&) { return "no"; }

// How a command is tried: what it must make of a package, and how that shows.
struct Trial {
  std::vector<std::string> words;
  bool takes_many;
  std::string (*expected)(const HostilePackage& package);
  bool (*has_taken)(const json& outcome);
};
using Trials = std::vector<Trial>;
const Trial kVerify = {{"verify", "--key", kPublicKey},
                       true,
                       [](const auto& package) { return package.is_readable; },
                       is_done};
const Trial kInstall = {{"install"}, true, taken_by_opkg, was_handed_to_opkg};
const Trials kTrialsOfRoot = {
    {{"inspect"}, true, [](const auto& package) { return package.is_readable; }, is_done},
    {{"check"}, true, taken_by_opkg, is_done},
    kVerify,
    kInstall,
    {{"restore", "--yes"}, false, only_an_image, has_written},
};
// The installation reads all that inspect and check read; the flash memory is root's.
const Trials kTrialsOfAUser = {kVerify, kInstall, {{"restore", "--yes"}, false, never, is_done}};

// Nothing that a terminal would take for more than text.
void expect_printable(const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) EXPECT_EQ(line, client::printable(line));
}

// The packages of a part, with good signatures; every second part's must have them, which makes the
// client work on a copy.
class HostileClient : public WithoutPackages, public testing::WithParamInterface<int> {
 protected:
  HostileClient() {
    EXPECT_EQ(::mount("tmpfs", temporary_.path().c_str(), "tmpfs", 0, kTemporaryBytes), 0);
    device_.make_area("/dev/mtd1", 2, "boot loader ");
    device_.make_area("/dev/mtd3", 16, "kernel ");
    client::prepare_cryptography();
    const client::SecretKey key;
    fs::create_directories(kKeys);
    write_file(kPublicKey, text_of(key.public_key()));
    for (HostilePackage& package : packages_) {
      const fs::path copy = signed_ / fs::path(package.file).filename().string();
      fs::copy_file(package.file, copy);
      package.file = copy;
      sign(package.file, key);
    }
  }
  ~HostileClient() override {
    EXPECT_EQ(::umount2(temporary_.path().c_str(), MNT_DETACH), 0);
    fs::remove_all(kKeys);
    fs::remove(kPolicy);
    fs::remove(kPublicKey);
  }

  void demand_signatures() const {
    fs::copy_file(kPublicKey, std::string(kKeys) + "/hostile.pub");
    write_file(kPolicy, "require_signature: all\n");
  }

  void try_all(const Trials& trials, const std::function<void()>& prepare) const {
    const Surroundings before = around();
    for (const Trial& trial : trials) {
      SCOPED_TRACE(trial.words.front());
      try_on_all(trial, prepare);
    }
    EXPECT_EQ(changes(before, around()), std::vector<std::string>());
    rusage used = {};
    EXPECT_EQ(::getrusage(RUSAGE_CHILDREN, &used), 0);
    if (is_memory_bounded()) {
      EXPECT_LE(used.ru_maxrss, kMaxResidentKiB);
    }
  }

  const FlashDevice device_;
  const OpkgTool opkg_;
  const TempDir signed_;
  const PrivateTemporaryDirectory temporary_;

 private:
  static void sign(const std::string& file, const client::SecretKey& key) {
    const std::string content = read_file(file);
    client::Hash hash;
    (void)crypto_generichash(hash.data(), hash.size(),
                             reinterpret_cast<const unsigned char*>(content.data()), content.size(),
                             nullptr, 0);
    write_file(file + ".minisig", text_of(key.sign(hash, "package:clock version:1.0")));
  }

  // Without where the script that stands for opkg keeps its arguments.
  [[nodiscard]] Surroundings around() const {
    const std::string path = std::getenv("PATH");
    return surroundings({temporary_.path(), path.substr(0, path.find(':')), "/run/tarvio",
                         "/run/tarvio-flash.lock"});
  }

  void try_on_all(const Trial& trial, const std::function<void()>& prepare) const {
    std::vector<std::string> files;
    for (const HostilePackage& package : packages_) files.push_back(package.file);
    const json outcomes = outcomes_of(trial, files, prepare);
    std::vector<std::string> shown;
    for (size_t at = 0; at < files.size(); ++at) {
      const bool has_taken = trial.has_taken(outcomes.at(at));
      const std::string expected = trial.expected(packages_[at]);
      EXPECT_THAT(expected, testing::AnyOf("any", has_taken ? "yes" : "no"))
          << files[at] << ": " << outcomes[at];
      if (is_done(outcomes[at])) shown.push_back(files[at]);
    }
    if (trial.takes_many && !shown.empty()) (void)run(trial, {}, shown, prepare);
  }

  // The outcome that the program reports for each file.
  json outcomes_of(const Trial& trial, const std::vector<std::string>& files,
                   const std::function<void()>& prepare) const {
    if (trial.takes_many) return json::parse(run(trial, {"--json"}, files, prepare));
    json outcomes;
    for (const std::string& file : files) {
      outcomes.push_back(
          json::parse(run(trial, {"--json", "--workdir", temporary_.path()}, {file}, prepare)));
    }
    return outcomes;
  }

  // Its output.
  std::string run(const Trial& trial, const std::vector<std::string>& options,
                  const std::vector<std::string>& files,
                  const std::function<void()>& prepare) const {
    std::vector<std::string> arguments = trial.words;
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.insert(arguments.end(), files.begin(), files.end());
    const Ran ran = run_tarvio(arguments, prepare);
    EXPECT_THAT(ran.status, testing::AnyOf(0, 1, kNotTrusted)) << ran.errors;
    expect_printable(ran.output);
    expect_printable(ran.errors);
    EXPECT_EQ(temporary_.entries(), std::vector<std::string>());
    return ran.output;
  }

  std::vector<HostilePackage> packages_ = hostile_packages(GetParam());
};

TEST_P(HostileClient, DoesNoHarmToRoot) {
  if (GetParam() % 2 == 0) demand_signatures();
  try_all(kTrialsOfRoot, [] {});
}

void become_user() {
  if (::setgroups(0, nullptr) != 0 || ::setgid(kUser) != 0 || ::setuid(kUser) != 0) {
    ::_exit(kCannotRun);
  }
}

TEST_P(HostileClient, DoesNoHarmToAUser) {
  // An ordinary user is root in the sandbox, so that the other test is the one that counts.
  if (!has_other_users()) GTEST_SKIP() << "needs another user";
  const std::string path = std::getenv("PATH");
  fs::permissions(path.substr(0, path.find(':')), fs::perms(0777));
  fs::permissions(signed_.path(), fs::perms(0755));
  if (run_tarvio({"help"}, become_user).status != 0) {
    GTEST_SKIP() << "needs a build directory that others may enter";
  }
  if (GetParam() % 2 == 1) demand_signatures();
  try_all(kTrialsOfAUser, become_user);
}

// Names that the shell, printf or a terminal would take for more than names.
const std::vector<std::string> kWords = {"a b",
                                         "a\nb",
                                         "-rf",
                                         "--help",
                                         "%n%n%s",
                                         "\x1b[31mred",
                                         "\x9b"
                                         "31m",
                                         "'",
                                         "\"",
                                         "$(touch hostile-file)",
                                         "`touch hostile-file`",
                                         ";touch hostile-file",
                                         "\xff\xfe",
                                         "\xe2\x80\xae",
                                         "*"};

class HostileNames : public WithoutPackages {
 protected:
  const OpkgTool opkg_;
};

TEST_F(HostileNames, OfFilesAreNamesAndNothingElse) {
  const WorkDirectory directory;
  for (const std::string& word : kWords) {
    const std::string file = word + ".tbx";
    fs::copy_file(hostile_packages(0).front().file, file);
    for (const char* command : {"inspect", "check", "install"}) {
      const Ran ran = run_tarvio({command, "--", file});
      EXPECT_EQ(ran.status, std::string(command) == "install" ? 1 : 0) << ran.errors;
      expect_printable(ran.output);
      expect_printable(ran.errors);
    }
    EXPECT_EQ(directory.names(), std::vector<std::string>({file}));
    fs::remove(file);
  }
}

TEST_F(HostileNames, OfPackagesDoNotReachOpkg) {
  for (const std::string& word : kWords) {
    const Ran ran = run_tarvio({"files", "--", word});
    EXPECT_EQ(ran.status, 1);
    EXPECT_THAT(ran.errors, testing::EndsWith("': not a valid package name (22)\n"));
    expect_printable(ran.errors);
  }
  EXPECT_EQ(opkg_.arguments(), std::vector<std::string>());
}

TEST_F(HostileNames, OfInstalledFilesAreShownWithoutTheirEscapes) {
  add_package("clock");
  std::string listing = "Package clock (1.0) is installed on root and has the following files:\n";
  for (const std::string& word : kWords) listing += "/opt/" + word + '\n';
  opkg_.prints(listing);
  const Ran ran = run_tarvio({"files", "clock"});
  EXPECT_EQ(ran.status, 0) << ran.errors;
  EXPECT_THAT(ran.output, testing::HasSubstr("/opt/\\x1b[31mred\n"));
  expect_printable(ran.output);
}

INSTANTIATE_TEST_SUITE_P(Part, HostileClient, testing::Range(0, kParts));

}  // namespace
}  // namespace tarvio_test
