// The operator's tool as a program.
#ifndef TARVIO_TESTS_FLEET_TOOL_TOOL_H
#define TARVIO_TESTS_FLEET_TOOL_TOOL_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/fleet/agent_process.h"
#include "support/fleet/answering_board.h"
#include "support/fleet/broker_process.h"
#include "support/programs/background_program.h"

namespace tarvio_test {

class FleetTool : public testing::Test {
 protected:
  FleetTool() {
    use_built_programs();
    ::setenv("HOME", home_.path().c_str(), 1);
    settle("ann");
  }

  // The settings of an operator.
  void settle(const std::string& name) const {
    write_file(settings(), "broker: 127.0.0.1:18830\ntls: no\noperator: " + name + "\n");
  }
  std::string settings() const { return home_ / "fleet.conf"; }

  struct Ran {
    int status;
    std::string output;
    std::string errors;
  };
  std::vector<std::string> line(std::vector<std::string> words) const {
    words.insert(words.begin(), TARVIO_FLEET);
    words.insert(words.end(), {"--config", settings()});
    return words;
  }
  Ran run(const std::vector<std::string>& words) const {
    BackgroundProgram program(line(words));
    const int status = program.end();
    return {status, program.output(), program.errors()};
  }
  Json json(std::vector<std::string> words) const {
    words.emplace_back("--json");
    return Json::parse(run(words).output, nullptr, false);
  }

  const TempDir home_;
  BrokerProcess broker_;
};

}  // namespace tarvio_test

#endif
