#include "support/packages/recorded_opkg.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace tarvio_test {

std::vector<RecordedRun> recorded_runs(const std::string& version) {
  std::vector<RecordedRun> runs;
  std::ifstream file(TARVIO_TEST_DATA "/opkg/" + version + ".txt");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("== ")) {
      RecordedRun& run = runs.emplace_back();
      std::istringstream(line.substr(3)) >> run.name >> run.exit_status >> run.code;
    } else if (runs.back().command.empty()) {
      (line.starts_with("< ") ? runs.back().before : runs.back().command) = line.substr(2);
    } else {
      runs.back().output += line + "\n";
    }
  }
  if (runs.empty()) ADD_FAILURE() << "no recorded runs of opkg " << version;
  return runs;
}

}  // namespace tarvio_test
