// Inputs that the fuzzers start from, and such that have found something, checked without a fuzzer.
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>

#include "fuzzer.h"
#include "support/files.h"
#include "support/hooks/stdout_capture.h"

namespace tarvio_test {
namespace {

struct Row {
  const char* name;
  const tarvio_fuzz::Fuzzer* fuzzer;
  int least;  // inputs
};

std::ostream& operator<<(std::ostream& stream, const Row& row) { return stream << row.name; }

class FuzzCorpus : public testing::TestWithParam<Row> {};

TEST_P(FuzzCorpus, HoldsInputsThatNothingGoesWrongWith) {
  const tarvio_fuzz::Fuzzer& fuzzer = *GetParam().fuzzer;
  const std::filesystem::path corpus = TARVIO_FUZZ_CORPUS;
  int inputs = 0;
  for (const auto& entry : std::filesystem::directory_iterator(corpus / fuzzer.corpus)) {
    std::string wrong;
    {
      const StdoutCapture out;
      wrong = fuzzer.check(read_file(entry.path()));
    }
    EXPECT_EQ(wrong, "") << entry.path();
    ++inputs;
  }
  EXPECT_GE(inputs, GetParam().least);
}

// Those of kLog are those of kParse, and it checks all that kParse does.
INSTANTIATE_TEST_SUITE_P(Inputs, FuzzCorpus,
                         testing::Values(Row{"Config", &tarvio_fuzz::kConfig, 10},
                                         Row{"Containers", &tarvio_fuzz::kContainers, 10},
                                         Row{"Control", &tarvio_fuzz::kControl, 10},
                                         Row{"Fields", &tarvio_fuzz::kFields, 10},
                                         Row{"Log", &tarvio_fuzz::kLog, 20},
                                         Row{"Package", &tarvio_fuzz::kPackage, 10},
                                         Row{"Reply", &tarvio_fuzz::kReply, 10},
                                         Row{"Request", &tarvio_fuzz::kRequest, 10},
                                         Row{"Signature", &tarvio_fuzz::kSignature, 10},
                                         Row{"Tools", &tarvio_fuzz::kTools, 10}),
                         [](const auto& row) { return std::string(row.param.name); });

#ifdef TARVIO_FUZZ_FLEET
INSTANTIATE_TEST_SUITE_P(OfTheFleet, FuzzCorpus,
                         testing::Values(Row{"Fleet", &tarvio_fuzz::kFleet, 15}),
                         [](const auto& row) { return std::string(row.param.name); });
#endif

}  // namespace
}  // namespace tarvio_test
