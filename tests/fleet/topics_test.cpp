#include "fleet/topics.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvio_test {
namespace {

TEST(FleetName, IsOneLevelOfATopic) {
  for (const char* name : {"a", "7", "board-1", "Board_1.lab", "a-"}) {
    EXPECT_TRUE(fleet::is_name(name)) << name;
  }
  for (const char* text : {"", "-a", ".", "..", "_", "a/b", "a b", "a+", "#", "a\n", "\xc3\xa9"}) {
    EXPECT_FALSE(fleet::is_name(text)) << text;
  }
}

TEST(FleetName, HasAtMost64Bytes) {
  EXPECT_TRUE(fleet::is_name(std::string(64, 'a')));
  EXPECT_FALSE(fleet::is_name(std::string(65, 'a')));
}

TEST(FleetTopic, IsOfABoard) {
  const std::string topic = fleet::topic_of("board-1", "answer/ann");
  EXPECT_EQ(topic, "tarvio/v1/board-1/answer/ann");
  EXPECT_EQ(fleet::device_topic(topic).device, "board-1");
  EXPECT_EQ(fleet::device_topic(topic).end, "answer/ann");
}

TEST(FleetTopic, IsOfNoBoard) {
  for (const char* topic : {"", "tarvio/v1/", "tarvio/v1/board-1", "tarvio/v1//online",
                            "tarvio/v2/board-1/online", "other/tarvio/v1/board-1/online"}) {
    EXPECT_EQ(fleet::device_topic(topic).device, "") << topic;
  }
}

}  // namespace
}  // namespace tarvio_test
