// The client when memory, or a call of the system, fails it: it says so and ends in good time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "flash/image_archive.h"
#include "support/com/manager.h"
#include "support/files.h"
#include "support/flash/flash_client.h"
#include "support/packages/stand_in_opkg.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"
#include "tarvio/status_manager.h"

namespace tarvio_test {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

struct Faulty {
  Ran ran;
  bool has_failed = false;  // whether there was such a call
};

// The n-th call of a function fails, or all from that one on.
Faulty run_with_fault(const std::string& fault, const std::vector<std::string>& arguments) {
  const TempDir notes;
  const std::string note = notes / "fault";
  Faulty faulty;
  faulty.ran = run_tarvio(arguments, [&] {
    ::setenv("TARVIO_TEST_FAULT", fault.c_str(), 1);
    ::setenv("TARVIO_TEST_FAULTS", note.c_str(), 1);
    ::setenv("LD_PRELOAD", TARVIO_ONE_FAULT, 1);
  });
  faulty.has_failed = std::filesystem::exists(note);
  return faulty;
}

// After the first, a sample of the calls: some runs make hundreds.
int after(int n) { return n + 1 + n / 16; }

// Of its work directories; a tool that was killed may leave one of its own.
void expect_clean(const PrivateTemporaryDirectory& temporary) {
  for (const std::string& name : temporary.entries()) EXPECT_THAT(name, Not(StartsWith("tarvio.")));
}

// Either a success with all of its output, or words and no signal.
void expect_reported(const Ran& ran, const std::string& output = "") {
  if (ran.status == 0) {
    EXPECT_THAT(ran.output, HasSubstr(output));
  } else {
    EXPECT_GT(ran.status, 0) << "ended by a signal";
    EXPECT_THAT(ran.errors, StartsWith("tarvio: "));
  }
}

constexpr char kOnce[] = "";

class ClientWithoutMemory : public testing::TestWithParam<const char*> {
 protected:
  std::string fault(int n) const { return "malloc " + std::to_string(n) + GetParam(); }
};

TEST_P(ClientWithoutMemory, SaysSoWhenItHasTheStatuses) {
  const ManagerProcess manager({}, [] {
    tq_set_application_status_normal("clock", "started app");
    tq_set_application_status_error("web", "start app failed.");
  });
  for (int n = 1;; ++n) {
    SCOPED_TRACE(n);
    const Faulty faulty = run_with_fault(fault(n), {"status", "--json"});
    if (!faulty.has_failed) break;
    expect_reported(faulty.ran);
  }
}

TEST_P(ClientWithoutMemory, SaysSoOfItsOwnMistakes) {
  for (const std::vector<std::string>& line :
       {std::vector<std::string>{"--help"}, {"status", "--bogus"}, {"areas", "--json"}}) {
    for (int n = 1;; ++n) {
      SCOPED_TRACE(line[0] + std::to_string(n));
      const Faulty faulty = run_with_fault(fault(n), line);
      if (!faulty.has_failed) break;
      expect_reported(faulty.ran);
    }
  }
}

TEST_P(ClientWithoutMemory, LeavesNothingBehindOfItsWorkOnPackages) {
  const HandMadePackage package;
  const PrivateTemporaryDirectory temporary;
  for (int n = 1;; ++n) {
    SCOPED_TRACE(n);
    const Faulty faulty = run_with_fault(fault(n), {"inspect", "--json", package.path()});
    if (!faulty.has_failed) break;
    expect_reported(faulty.ran, "\"clock\"");
  }
  // Removing a directory takes memory.
  if (GetParam() == std::string(kOnce)) expect_clean(temporary);
}

INSTANTIATE_TEST_SUITE_P(Once, ClientWithoutMemory, testing::Values(kOnce));
INSTANTIATE_TEST_SUITE_P(ForGood, ClientWithoutMemory, testing::Values(" on"));

class ClientWhoseCallFails : public testing::TestWithParam<const char*> {};

// Far less than the deadline of the command, and far more than it takes.
TEST_P(ClientWhoseCallFails, DoesNotWaitForItsDeadline) {
  const HandMadePackage package;
  use_stand_in_opkg();
  const PrivateTemporaryDirectory temporary;
  for (const std::string command : {"inspect", "check", "install"}) {
    for (int n = 1;; n = after(n)) {
      SCOPED_TRACE(command + std::to_string(n));
      const Faulty faulty = run_with_fault(GetParam() + (" " + std::to_string(n)),
                                           {command, "--timeout", "3600", package.path()});
      if (!faulty.has_failed) break;
      if (GetParam() != std::string("write")) expect_reported(faulty.ran);
      EXPECT_GE(faulty.ran.status, 0);
    }
  }
  expect_clean(temporary);
}

INSTANTIATE_TEST_SUITE_P(Once, ClientWhoseCallFails, testing::Values("waitpid", "write", "read"));

class FlashWhoseCallFails : public FlashClient, public testing::WithParamInterface<const char*> {
 protected:
  // With each call failing once; what must hold after a success.
  void run_with_faults(const std::vector<std::string>& arguments,
                       const std::function<void(bool is_success)>& check) const {
    for (int n = 1;; n = after(n)) {
      SCOPED_TRACE(arguments.front() + std::to_string(n));
      const Faulty faulty = run_with_fault(GetParam() + (" " + std::to_string(n)), arguments);
      EXPECT_GE(faulty.ran.status, 0) << faulty.ran.errors;
      expect_only({"image.tbx"});
      check(faulty.ran.status == 0);
      if (!faulty.has_failed) break;
    }
  }
};

TEST_P(FlashWhoseCallFails, IsSavedAndRestoredOrItIsSaid) {
  keep("boot", "/dev/mtd1", 0, 0x40000);
  write_file("image.tbx", "old");
  run_with_faults({"backup", "bootloader", "--to", "image.tbx", "--overwrite", "--timeout", "3600"},
                  [](bool is_success) {
                    if (!is_success && read_file("image.tbx") == "old") return;
                    EXPECT_EQ(client::ArchiveFile("image.tbx").find("boot").bytes, 0x40000U);
                    write_file("image.tbx", "old");
                  });
  ASSERT_EQ(back_up({"bootloader", "--overwrite"}).status, 0);
  run_with_faults({"restore", "image.tbx", "--yes", "--timeout", "3600"}, [this](bool is_success) {
    if (is_success) expect_holds("/dev/mtd1", 0, "boot");
    wipe("/dev/mtd1");
  });
}

INSTANTIATE_TEST_SUITE_P(Once, FlashWhoseCallFails, testing::Values("malloc", "waitpid", "write"));

}  // namespace
}  // namespace tarvio_test
