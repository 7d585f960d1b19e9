// A tarvio-agent of a test's own.
#ifndef TARVIO_TESTS_SUPPORT_FLEET_AGENT_PROCESS_H
#define TARVIO_TESTS_SUPPORT_FLEET_AGENT_PROCESS_H

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/programs/background_program.h"
#include "support/users.h"

namespace tarvio_test {

// Where the agent finds tarvio and tarvio-transfer, and these what they need.
inline void use_built_programs() {
  const std::string path =
      std::string(TARVIO_PROGRAMS) + ":" + TARVIO_SANDBOX_TOOLS + ":" + ::getenv("PATH");
  ::setenv("PATH", path.c_str(), 1);
}

inline constexpr char kPlainBroker[] = "broker: 127.0.0.1:18830\ntls: no\n";

class AgentProcess {
 public:
  // lines  of the settings, besides the broker, the name and the directory.
  explicit AgentProcess(const std::string& device = "board-1", const std::string& lines = "",
                        const std::string& broker = kPlainBroker) {
    write_file(settings(), broker + "device: " + device +
                               "\nrun_as: " + (has_other_users() ? "nobody" : "root") +
                               "\ndirectory: " + directory().string() + "\n" + lines);
    start();
  }

  void start() {
    program_ = std::make_unique<BackgroundProgram>(
        std::vector<std::string>{TARVIO_AGENT, "--config", settings()});
  }
  BackgroundProgram& program() { return *program_; }
  std::string settings() const { return place_ / "agent.conf"; }
  // What it keeps.
  std::filesystem::path directory() const { return place_ / "kept"; }

 private:
  const TempDir place_;
  std::unique_ptr<BackgroundProgram> program_;
};

}  // namespace tarvio_test

#endif
