// The sandbox's stand-in leaves what the real programs leave.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "opkg/real_opkg.h"
#include "support/packages/stand_in_opkg.h"

namespace tarvio_test {
namespace {

// After each command: its exit status, what opkg knows, and the files.
constexpr char kScenario[] =
    "force='--force-depends --force-maintainer --force-reinstall --force-overwrite "
    "--force-downgrade'\n"
    "run() { echo \"$*\"; opkg \"$@\" >/dev/null 2>&1; echo $?; ls /usr/lib/opkg/info"
    "; find /opt -type f | sort; }\n"
    "run install app-1.0.ipk; run install app-1.0.ipk; run $force install app-1.0.ipk\n"
    "run install app-2.0.ipk; run install app-1.0.ipk; run $force install app-1.0.ipk\n"
    "run install clash-1.0.ipk; run remove clash; run --force-overwrite install clash-1.0.ipk; run "
    "remove clash\n"
    "run install rival-1.0.ipk; run --force-depends install rival-1.0.ipk; run remove rival\n"
    "run install needsmore-1.0.ipk; run --force-depends install needsmore-1.0.ipk\n"
    "run install lib-1.0.ipk; run remove lib; run --force-depends remove lib\n"
    "run install arm-1.0.ipk; run $force install arm-1.0.ipk; run install text.ipk\n"
    "run install no-control-member.ipk; run install garbage-control.ipk; run install nowhere.ipk\n"
    "run files needsmore; run files nosuch; run remove nosuch; run remove needsmore\n"
    "run list-installed\n";

std::string state_after_scenario() {
  std::string state;
  FILE* const output =
      ::popen(("cd " TARVIO_TEST_DATA "/opkg/packages\n" + std::string(kScenario)).c_str(), "r");
  if (output == nullptr) ADD_FAILURE() << "cannot run the scenario";
  if (output == nullptr) return state;
  for (int byte = std::fgetc(output); byte != EOF; byte = std::fgetc(output))
    state += static_cast<char>(byte);
  ::pclose(output);
  return state;
}

class RealOpkgAndStandIn : public RealOpkg {};

INSTANTIATE_TEST_SUITE_P(Releases, RealOpkgAndStandIn, testing::Values(kOpkg018, kOpkg044));

TEST_P(RealOpkgAndStandIn, LeaveTheSame) {
  const std::string real = state_after_scenario();
  for (const char* directory : {"/usr/lib/opkg", "/opt"}) {
    for (const auto& entry : std::filesystem::directory_iterator(directory))
      std::filesystem::remove_all(entry.path());
  }
  std::filesystem::create_directories(kInformation);
  use_stand_in_opkg();
  ::setenv("OPKG_PROFILE", is_old() ? "0.2.0" : "0.3.6", 1);
  EXPECT_EQ(state_after_scenario(), real);
  ::unsetenv("OPKG_PROFILE");
}

}  // namespace
}  // namespace tarvio_test
