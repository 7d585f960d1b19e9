// The client when it has no memory from some moment on: it says so and ends in good time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/com/manager.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"
#include "tarvio/status_manager.h"

namespace tarvio_test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// Either a success with all of its output, or words and no signal.
void expect_reported(const Ran& ran, const std::string& output) {
  if (ran.status == 0) {
    EXPECT_THAT(ran.output, HasSubstr(output));
  } else {
    EXPECT_GT(ran.status, 0) << "ended by a signal";
    EXPECT_THAT(ran.errors, StartsWith("tarvio: "));
  }
}

// From the first allocation on, from the second one on, and so on until none fails.
void expect_reported_without_memory(const std::vector<std::string>& arguments,
                                    const std::string& output = "") {
  const TempDir notes;
  const std::string note = notes / "fault";
  bool has_failed = true;
  for (int n = 1; has_failed; ++n) {
    SCOPED_TRACE(arguments[0] + std::to_string(n));
    std::filesystem::remove(note);
    const Ran ran = run_tarvio(arguments, [&] {
      ::setenv("TARVIO_TEST_FAULT", std::to_string(n).c_str(), 1);
      ::setenv("TARVIO_TEST_FAULTS", note.c_str(), 1);
      ::setenv("LD_PRELOAD", TARVIO_NO_MEMORY, 1);
    });
    has_failed = std::filesystem::exists(note);
    expect_reported(ran, output);
  }
}

TEST(ClientWithoutMemory, SaysSoWhenItHasTheStatuses) {
  const ManagerProcess manager({}, [] {
    tq_set_application_status_normal("clock", "started app");
    tq_set_application_status_error("web", "start app failed.");
  });
  expect_reported_without_memory({"status", "--json"});
}

TEST(ClientWithoutMemory, SaysSoOfItsOwnMistakes) {
  expect_reported_without_memory({"--help"});
  expect_reported_without_memory({"status", "--bogus"});
  expect_reported_without_memory({"areas", "--json"});
}

TEST(ClientWithoutMemory, SaysSoOfItsWorkOnPackages) {
  const HandMadePackage package;
  const PrivateTemporaryDirectory temporary;  // removing what is in there takes memory
  expect_reported_without_memory({"inspect", "--json", package.path()}, "\"clock\"");
}

}  // namespace
}  // namespace tarvio_test
