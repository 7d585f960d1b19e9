// The client's commands on hostile package files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "hostile_packages.h"
#include "support/flash/flash_device.h"
#include "support/packages/opkg_tool.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"
#include "terminal/printable_text.h"

namespace tarvio_test {
namespace {

using nlohmann::json;

constexpr char kTemporaryBytes[] = "size=96m";
#ifndef TARVIO_ADDRESS_SANITIZER
constexpr long kMaxResidentKiB = 96 * 1024;
#endif

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

// How a command is tried: what it must make of a package, and how that shows.
struct Trial {
  std::vector<std::string> words;
  bool takes_many;
  std::string (*expected)(const HostilePackage& package);
  bool (*has_taken)(const json& outcome);
};
const Trial kTrials[] = {
    {{"inspect"}, true, [](const auto& package) { return package.is_readable; }, is_done},
    {{"check"}, true, [](const auto& package) { return package.is_taken; }, is_done},
    {{"install"}, true, [](const auto& package) { return package.is_taken; }, was_handed_to_opkg},
    {{"restore", "--yes"}, false, only_an_image, has_written},
};

// Nothing that a terminal would take for more than text.
void expect_printable(const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) EXPECT_EQ(line, client::printable(line));
}

class HostileClient : public WithoutPackages, public testing::WithParamInterface<int> {
 protected:
  HostileClient() {
    EXPECT_EQ(::mount("tmpfs", temporary_.path().c_str(), "tmpfs", 0, kTemporaryBytes), 0);
    device_.make_area("/dev/mtd1", 2, "boot loader ");
    device_.make_area("/dev/mtd3", 16, "kernel ");
  }
  ~HostileClient() override { EXPECT_EQ(::umount2(temporary_.path().c_str(), MNT_DETACH), 0); }

  // Without where the script that stands for opkg keeps its arguments.
  [[nodiscard]] Surroundings around() const {
    const std::string path = std::getenv("PATH");
    return surroundings({temporary_.path(), path.substr(0, path.find(':')), "/run/tarvio"});
  }

  // The outcome that the program reports for each file.
  json try_on(const Trial& trial, const std::vector<std::string>& files) const {
    std::vector<std::string> arguments = trial.words;
    if (!trial.takes_many) arguments.insert(arguments.end(), {"--workdir", temporary_.path()});
    arguments.insert(arguments.end(), files.begin(), files.end());
    const Ran text = run_tarvio(arguments);
    EXPECT_THAT(text.status, testing::AnyOf(0, 1)) << text.errors;
    expect_printable(text.output);
    expect_printable(text.errors);
    arguments.emplace_back("--json");
    const Ran ran = run_tarvio(arguments);
    EXPECT_EQ(ran.status, text.status);
    expect_printable(ran.output);
    EXPECT_EQ(temporary_.entries(), std::vector<std::string>());
    return json::parse(ran.output);
  }

  const FlashDevice device_;
  const OpkgTool opkg_;
  const PrivateTemporaryDirectory temporary_;
};

TEST_P(HostileClient, TakesNoHarm) {
  const std::vector<HostilePackage> packages = hostile_packages(GetParam());
  const Surroundings before = around();
  for (const Trial& trial : kTrials) {
    SCOPED_TRACE(trial.words.front());
    std::vector<std::string> files;
    for (const HostilePackage& package : packages) files.push_back(package.file);
    json outcomes;
    if (trial.takes_many) outcomes = try_on(trial, files);
    for (size_t at = 0; at < packages.size(); ++at) {
      if (!trial.takes_many) outcomes.push_back(try_on(trial, {files[at]}));
      const bool has_taken = trial.has_taken(outcomes.at(at));
      const std::string expected = trial.expected(packages[at]);
      EXPECT_THAT(expected, testing::AnyOf("any", has_taken ? "yes" : "no"))
          << files[at] << ": " << outcomes[at];
    }
  }
  EXPECT_EQ(changes(before, around()), std::vector<std::string>());
#ifndef TARVIO_ADDRESS_SANITIZER
  rusage used = {};
  EXPECT_EQ(::getrusage(RUSAGE_CHILDREN, &used), 0);
  EXPECT_LE(used.ru_maxrss, kMaxResidentKiB);
#endif
}

INSTANTIATE_TEST_SUITE_P(Part, HostileClient, testing::Range(0, kParts));

}  // namespace
}  // namespace tarvio_test
