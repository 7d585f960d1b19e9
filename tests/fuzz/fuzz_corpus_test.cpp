// Inputs that the fuzzers start from, checked without a fuzzer.
#include <gtest/gtest.h>

#include <filesystem>

#include "../fuzz/log_input.h"
#include "support/files.h"
#include "support/hooks/stdout_capture.h"
#include "tarvio/log_monitor.h"

namespace tarvio_test {
namespace {

TEST(FuzzCorpus, HoldsLogsThatAreReadAndTakenApart) {
  tq_setup_log_manager();
  int logs = 0;
  for (const auto& entry : std::filesystem::directory_iterator(TARVIO_FUZZ_CORPUS "/log")) {
    std::string wrong;
    {
      const StdoutCapture out;
      wrong = tarvio_fuzz::check_log(read_file(entry.path()));
    }
    EXPECT_EQ(wrong, "") << entry.path();
    ++logs;
  }
  EXPECT_GE(logs, 20);
  tq_list_free(syslog_hook, 0);
}

}  // namespace
}  // namespace tarvio_test
