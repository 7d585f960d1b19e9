// What is shown while a file is read for its signature: nothing, unless that takes long.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "signed_packages.h"
#include "support/packages/package_listing.h"
#include "support/packages/stand_in_opkg.h"
#include "support/programs/stepping_clock.h"

namespace tarvio_test {
namespace {

using testing::EndsWith;
using testing::MatchesRegex;
using testing::StartsWith;

using Words = std::vector<std::string>;

class SignatureProgress : public SignedPackages {
 protected:
  SignatureProgress() {
    use_stand_in_opkg();
    write_kernel_command_line("root=/dev/mtdblock4\n");
    set_policy("require_signature: all\n");
    sign();
    trust();
  }
  std::vector<Words> commands() const {
    return {{"verify", file()},
            {"install", file()},
            {"sign", file(), "--key", key("vendor") + ".key"},
            {"pack", sample().path(), "-o", file(), "--sign", key("vendor") + ".key"}};
  }
  // On the terminal.
  std::string shown(Words command, Clock clock) const {
    command.insert(command.end(), {"--timeout", "0"});
    const Ran run = run_tarvio(command, at_terminal(terminal_, clock));
    EXPECT_EQ(run.status, 0) << run.errors;
    return terminal_.shown();
  }

 private:
  const Terminal terminal_;
};

TEST_F(SignatureProgress, IsNotShownOfWhatIsReadAtOnce) {
  for (const Words& command : commands()) {
    EXPECT_THAT(shown(command, Clock::kStandsStill), MatchesRegex("[^\r\n\x1b]+\n")) << command[0];
  }
}

TEST_F(SignatureProgress, IsRemovedBeforeTheResult) {
  for (const Words& command : commands()) {
    EXPECT_THAT(
        shown(command, Clock::kStepsAnHour),
        MatchesRegex("(\r\x1b.K" + file() + ": reading [0-9]+ %, [^\r\n]+)+\r\x1b.K[^\r\n\x1b]+\n"))
        << command[0];
  }
}

TEST_F(SignatureProgress, IsALineElsewhere) {
  const auto use_steps = [] { use_clock(Clock::kStepsAnHour); };
  const Ran run = run_tarvio({"verify", file(), "--timeout", "0"}, use_steps);
  EXPECT_THAT(run.output, StartsWith(file() + ": reading "));
  EXPECT_THAT(run.output,
              EndsWith("\n" + file() + " is clock 1.0, signed by key " + id_of("vendor") + '\n'));
  const Ran json = run_tarvio({"verify", file(), "--timeout", "0", "--json"}, use_steps);
  EXPECT_EQ(nlohmann::json::parse(json.output)[0]["name"], "clock");
}

}  // namespace
}  // namespace tarvio_test
