// tarvio-fleet, run as an operator does.
#ifndef TARVIO_BENCH_FLEET_OPERATOR_TOOL_H
#define TARVIO_BENCH_FLEET_OPERATOR_TOOL_H

#include <filesystem>
#include <string>
#include <vector>

#include "fleet/broker.h"

namespace tarvio_bench {

class OperatorTool {
 public:
  // directory  of the operator's files.
  OperatorTool(std::filesystem::path directory, const fleet::Broker& broker);

  struct Run {
    double seconds = 0;
    double cpu_seconds = 0;
    std::string output;
  };

  // Ends the program when the tool does not end with 0.
  [[nodiscard]] Run run(const std::vector<std::string>& words) const;

 private:
  const std::filesystem::path directory_;
};

}  // namespace tarvio_bench

#endif
