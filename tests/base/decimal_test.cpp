#include "base/decimal.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace tarvio_test {
namespace {

TEST(Decimal, IsTheNumberAsPrintfWritesIt) {
  for (const int number : {0, 1, -1, 9, 10, -10, 99, 100, 1'234'567'890, INT_MAX, INT_MIN}) {
    const tarvio::Decimal decimal(number);
    EXPECT_EQ(decimal.text(), std::to_string(number));
  }
}

}  // namespace
}  // namespace tarvio_test
