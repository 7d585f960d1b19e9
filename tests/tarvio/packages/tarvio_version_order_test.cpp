// The order of versions.
#include <gtest/gtest.h>

#include "packages/version_order.h"

namespace tarvio_test {
namespace {

using client::is_older;

TEST(VersionOrder, IsThatOfOpkg) {
  const struct {
    const char* older;
    const char* newer;
  } rows[] = {
      {"1.0", "1.1"},
      {"1.9", "1.10"},
      {"1.0", "1.0.1"},
      {"1.0~rc1", "1.0"},
      {"1.0~rc1", "1.0~rc2"},
      {"1.0~~", "1.0~"},
      {"1.0", "1.0a"},
      {"1.0a", "1.0b"},
      {"1.0a", "1.0+"},
      {"1.0-1", "1.0-2"},
      {"1.0-2", "1.0-10"},
      {"1.0-9", "1.1-1"},
      {"2.0", "1:1.0"},
      {"1:2.0", "2:1.0"},
      {"1.0", "1.0-1"},
      {"1-2-3", "1-3-1"},
      {"", "1"},
      {"~", ""},
      {"99999999999999999998", "99999999999999999999"},
      {"1.0Z", "1.0a"},
      {"1.2.3~git20260101", "1.2.3"},
  };
  for (const auto& [older, newer] : rows) {
    EXPECT_TRUE(is_older(older, newer)) << older << " and " << newer;
    EXPECT_FALSE(is_older(newer, older)) << older << " and " << newer;
  }
}

TEST(VersionOrder, TakesSomeTextsForTheSame) {
  const struct {
    const char* one;
    const char* other;
  } rows[] = {{"1.0", "1.0"},   {"1.0", "1.00"},  {"1.01", "1.1"},
              {"0:1.0", "1.0"}, {"1.0-0", "1.0"}, {"", "0"}};
  for (const auto& [one, other] : rows) {
    EXPECT_FALSE(is_older(one, other)) << one << " and " << other;
    EXPECT_FALSE(is_older(other, one)) << one << " and " << other;
  }
}

}  // namespace
}  // namespace tarvio_test
