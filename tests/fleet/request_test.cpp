// What a board can be asked.
#include "board_request.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tarvio_test {
namespace {

using agent::Json;
using agent::Refusal;
using agent::Request;
using testing::ElementsAre;

constexpr char kDigits[] = "0123456789abcdef0123456789ABCDEF0123456789abcdef0123456789abcdef";

Json request_for(const std::string& command, const Json& arguments) {
  return {{"id", "r1"}, {"command", command}, {"arguments", arguments}, {"expires_in", 60}};
}

Request parse(const Json& json) { return agent::parse_request(json.dump(), true); }

std::string refusal_of(const std::string& payload) {
  try {
    (void)agent::parse_request(payload, true);
  } catch (const Refusal& refusal) {
    return refusal.what();
  }
  return "";
}
std::string refusal_of(const Json& json) { return refusal_of(json.dump()); }

TEST(AgentRequest, IsALineForTarvio) {
  const struct {
    const char* command;
    Json arguments;
    std::vector<std::string> words;
  } rows[] = {
      {"start", {{"app", "clock"}}, {"start", "clock"}},
      {"stop", {{"app", "clock"}}, {"stop", "clock"}},
      {"restart", {{"app", "clock"}}, {"restart", "clock"}},
      {"refresh", Json::object(), {"refresh"}},
      {"list", Json::object(), {"list"}},
      {"remove", {{"package", "clock"}}, {"remove", "clock"}},
      {"logs", Json::object(), {"logs", "--lines", "100"}},
      {"logs", {{"lines", 7}, {"app", "clock"}}, {"logs", "--lines", "7", "clock"}},
      {"backup",
       {{"areas", {"kernel", "rootfs"}}, {"url", "https://h/b"}},
       {"backup", "kernel", "rootfs"}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(parse(request_for(row.command, row.arguments)).words, row.words) << row.command;
  }
}

TEST(AgentRequest, BringsAPackage) {
  const Json arguments = {{"url", "https://h/clock.tbx"}, {"sha256", kDigits}, {"size", 7}};
  const Request request = parse(request_for("install", arguments));
  EXPECT_EQ(request.download.url, "https://h/clock.tbx");
  EXPECT_EQ(request.download.size, 7U);
  EXPECT_EQ(request.download.sha256,
            "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef");
  EXPECT_THAT(request.words, ElementsAre("install", "--require-signature"));
  EXPECT_THAT(agent::parse_request(request_for("install", arguments).dump(), false).words,
              ElementsAre("install"));
}

TEST(AgentRequest, MayForceAnInstallation) {
  const Json arguments = {
      {"url", "https://h/c"}, {"sha256", kDigits}, {"size", 7}, {"force", true}};
  EXPECT_THAT(parse(request_for("install", arguments)).words,
              ElementsAre("install", "--force", "--require-signature"));
}

TEST(AgentRequest, IsRunAgainAfterACutIfThatIsSafe) {
  EXPECT_EQ(parse(request_for("remove", {{"package", "clock"}})).after_cut,
            agent::AfterCut::kRunAgain);
  EXPECT_EQ(parse(request_for("restart", {{"app", "clock"}})).after_cut, agent::AfterCut::kReport);
}

TEST(AgentRequest, IsRefusedWithTheReason) {
  const Json start = request_for("start", {{"app", "clock"}});
  const auto with = [](Json json, const char* name, const Json& value) {
    json[name] = value;
    return json;
  };
  const auto without = [](Json json, const char* name) {
    json.erase(name);
    return json;
  };
  const struct {
    Json json;
    const char* why;
  } rows[] = {
      {Json::array(), "the request must be a JSON object"},
      {without(start, "id"), "member 'id' of the request is missing"},
      {with(start, "id", 7), "member 'id' is not a text of 1 to 256 bytes"},
      {with(start, "id", "../x"), "member 'id' is not a name"},
      {with(start, "command", "boom"), "unknown command 'boom'"},
      {without(start, "expires_in"), "member 'expires_in' of the request is missing"},
      {with(start, "expires_in", -1), "member 'expires_in' is not a number of seconds up to 86400"},
      {with(start, "expires_in", 86'401),
       "member 'expires_in' is not a number of seconds up to 86400"},
      {with(start, "more", 1), "unknown member 'more' of the request"},
      {with(start, "arguments", 1), "the arguments must be a JSON object"},
      {request_for("start", Json::object()), "member 'app' of the arguments is missing"},
      {request_for("start", {{"app", "--all"}}), "member 'app' is not a name: '--all'"},
      {request_for("start", {{"app", std::string("a\0b", 3)}}),
       "member 'app' is not a text of 1 to 256 bytes"},
      {request_for("start", {{"app", "a"}, {"x", 1}}), "unknown member 'x' of the arguments"},
      {request_for("install", {{"url", "http://h/c"}}),
       "member 'url' does not begin with https://"},
      {request_for("install", {{"url", "https://h/c"}, {"sha256", "00"}}),
       "member 'sha256' is not 64 hexadecimal digits"},
      {request_for("install", {{"url", "https://h/c"}, {"sha256", kDigits}, {"size", 0}}),
       "member 'size' is not a number of bytes from 1 to 4294967296"},
      {request_for("backup", {{"areas", Json::array()}, {"url", "https://h/b"}}),
       "member 'areas' is not a list of names"},
      {request_for("backup", {{"areas", "kernel"}, {"url", "https://h/b"}}),
       "member 'areas' is not a list of names"},
      {request_for("install",
                   {{"url", "https://h/c"}, {"sha256", kDigits}, {"size", 7}, {"force", "yes"}}),
       "member 'force' is not true or false"},
      {request_for("logs", {{"lines", 0}}), "member 'lines' is not a number from 1 to 10000"},
  };
  for (const auto& row : rows) EXPECT_EQ(refusal_of(row.json), row.why) << row.json.dump();
}

TEST(AgentRequest, IsRefusedWhenItIsNoJsonOrTooLarge) {
  EXPECT_EQ(refusal_of(std::string("{")), "the request is not JSON, or nested too deep");
  EXPECT_EQ(refusal_of(std::string(60'000, '[')), "the request is not JSON, or nested too deep");
  EXPECT_EQ(refusal_of(std::string(65'537, ' ')),
            "the request has 65537 bytes, and 65536 are allowed");
}

TEST(AgentRequest, IsNamedInItsRefusal) {
  EXPECT_EQ(agent::id_in(R"({"id":"r1","command":"boom"})"), "r1");
  for (const char* payload : {"{", "[]", "{}", R"({"id":1})", R"({"id":"a/b"})"}) {
    EXPECT_EQ(agent::id_in(payload), "") << payload;
  }
}

}  // namespace
}  // namespace tarvio_test
