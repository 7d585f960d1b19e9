// Runs of the real opkg that were recorded in tests/data/opkg.
#ifndef TARVIO_TESTS_SUPPORT_PACKAGES_RECORDED_OPKG_H
#define TARVIO_TESTS_SUPPORT_PACKAGES_RECORDED_OPKG_H

#include <string>
#include <vector>

namespace tarvio_test {

struct RecordedRun {
  std::string name;
  int exit_status = 0;
  int code = 0;        // what the library makes of the output
  std::string before;  // commands that ran before, to be ignored
  std::string command;
  std::string output;  // of both streams
};

inline constexpr const char* kRecordedVersions[] = {"0.1.8", "0.2.0", "0.2.4", "0.3.6",
                                                    "0.9.0-libsolv"};

std::vector<RecordedRun> recorded_runs(const std::string& version);

}  // namespace tarvio_test

#endif
