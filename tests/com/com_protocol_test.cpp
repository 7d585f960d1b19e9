#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/child_descriptors.h"
#include "support/com/request_handler.h"
#include "support/hooks/live_allocations.h"
#include "support/hooks/log_capture.h"
#include "support/repairs.h"
#include "support/unit_messages.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "com/tq_com_manager";

using ComProtocol = RequestHandler;

TEST_F(ComProtocol, StatusAllOfNothingIsAnEmptyReply) {
  EXPECT_EQ(serve("status_all\n"), "");
  EXPECT_EQ(result_, 0U);
}

TEST_F(ComProtocol, StatusAllGivesThreeLinesPerStatusInOrder) {
  set_three_statuses();
  EXPECT_EQ(serve("status_all\n"),
            "web\n0\nstarted app\ndisk\n1\nnearly full\nclock\n2\nstart app failed.\n");
  EXPECT_EQ(result_, 0U);
}

TEST_F(ComProtocol, StatusAppGivesTheApplicationsAlone) {
  set_three_statuses();
  EXPECT_EQ(serve("status_app\n"), "web\n0\nstarted app\nclock\n2\nstart app failed.\n");
}

TEST_F(ComProtocol, StatusAppDoesNotSelectByName) {
  set_three_statuses();
  EXPECT_EQ(serve("status_app\nclock\n"), serve("status_app\n"));
}

TEST_F(ComProtocol, EmptyDetailIsAnEmptyLine) {
  set_status("web", 0, "");
  EXPECT_EQ(serve("status_all\n"), "web\n0\n\n");
}

TEST_F(ComProtocol, StateIsSentInDecimal) {
  set_status("low", INT32_MIN, "");
  set_status("high", INT32_MAX, "");
  EXPECT_EQ(serve("status_all\n"), "low\n-2147483648\n\nhigh\n2147483647\n\n");
}

TEST_F(ComProtocol, LongListArrivesWhole) {
  std::string expected;
  for (int i = 0; i < 200; ++i) {
    const std::string name = "application-" + std::to_string(i);
    const std::string detail(static_cast<size_t>(i), 'd');
    set_status(name.c_str(), i % 3, detail.c_str());
    expected += name + "\n" + std::to_string(i % 3) + "\n" + detail + "\n";
  }
  EXPECT_EQ(serve("status_all\n"), expected);
}

TEST_F(ComProtocol, StartAppAnswersZeroAndTwoLineFeeds) {
  EXPECT_EQ(serve("start_app\nclock\n"), "0\n\n");
  EXPECT_THAT(binding_calls, ElementsAre("start clock"));
  EXPECT_EQ(serve("status_all\n"), "clock\n0\nstarted app\n");
}

TEST_F(ComProtocol, StartAppTakesAPartOfTheName) {
  EXPECT_EQ(serve("start_app\nserv\n"), "0\n\n");
  EXPECT_THAT(binding_calls, ElementsAre("start webserver"));
}

TEST_F(ComProtocol, StartAppOfAnUnknownNameAnswers22) {
  EXPECT_EQ(serve("start_app\nno-such\n"), "22\n\n");
  EXPECT_THAT(binding_calls, IsEmpty());
}

TEST_F(ComProtocol, StartAppAnswersTheErrorOfTheBinding) {
  binding_answers = {10301, -1};
  EXPECT_EQ(serve("start_app\nclock\n"), "10301\n\n");
  EXPECT_EQ(serve("start_app\nclock\n"), "-1\n\n");
  EXPECT_EQ(serve("status_all\n"), "clock\n2\nstart app failed.\n");
}

TEST_F(ComProtocol, StartAppWithoutANameAnswers22) {
  EXPECT_EQ(serve("start_app\n"), "22\n\n");
  EXPECT_THAT(binding_calls, IsEmpty());
}

TEST_F(ComProtocol, StartAppOfAnEmptyNameTakesTheFirstApplication) {
  EXPECT_EQ(serve("start_app\n\n"), "0\n\n");
  EXPECT_THAT(binding_calls, ElementsAre("start clock"));
}

TEST_F(ComProtocol, StartAllAnswersZeroAndTwoLineFeeds) {
  EXPECT_EQ(serve("start_all\n"), "0\n\n");
  EXPECT_THAT(binding_calls, ElementsAre("start clock", "start webserver"));
}

TEST_F(ComProtocol, StartAllAnswersTheLastFailure) {
  binding_answers = {5, 7, 0, 0};
  EXPECT_EQ(serve("start_all\n"), "7\n\n");
}

TEST_F(ComProtocol, StopAppAnswersZeroAndTwoLineFeeds) {
  serve("start_app\nclock\n");
  EXPECT_EQ(serve("stop_app\nclock\n"), "0\n\n");
  EXPECT_THAT(binding_calls, ElementsAre("start clock", "stop clock"));
  EXPECT_EQ(serve("status_all\n"), "");
}

TEST_F(ComProtocol, StopAppOfAnUnknownNameAnswers22) {
  EXPECT_EQ(serve("stop_app\nno-such\n"), "22\n\n");
}

TEST_F(ComProtocol, StopAppAnswersTheErrorOfTheBinding) {
  serve("start_app\nclock\n");
  binding_answers = {115};
  EXPECT_EQ(serve("stop_app\nclock\n"), "115\n\n");
  EXPECT_EQ(serve("status_all\n"), "clock\n2\nStop App Failed\n");
}

TEST_F(ComProtocol, StopAppWithoutANameAnswersNothing) {
  serve("start_app\nclock\n");
  EXPECT_EQ(serve("stop_app\n"), "");
  EXPECT_EQ(result_, 0U);
  EXPECT_THAT(binding_calls, ElementsAre("start clock"));
}

TEST_F(ComProtocol, StopAllAnswersZeroAndOneLineFeed) {
  serve("start_all\n");
  EXPECT_EQ(serve("stop_all\n"), "0\n");
  EXPECT_EQ(serve("status_all\n"), "");
}

TEST_F(ComProtocol, StopAllAnswersTheLastFailure) {
  serve("start_all\n");
  binding_answers = {0, 115, 0};
  EXPECT_EQ(serve("stop_all\n"), "115\n");
}

TEST_F(ComProtocol, AnythingElseAnswersNothing) {
  set_three_statuses();
  for (const char* request :
       {"", "\n", "\n\n", "unknown\n", "STATUS_ALL\n", "Status_all\n", "status_al\n",
        "status_alls\n", " status_all\n", "status_all \n", "\nstatus_all\n", "start\nclock\n",
        "status_all\r", "stop_all\rclock\n", "stop_all\r\r\n"}) {
    EXPECT_EQ(serve(request), "") << testing::PrintToString(request);
    EXPECT_EQ(result_, 0U);
  }
  EXPECT_THAT(binding_calls, IsEmpty());
}

int answer_33(const char* name) {
  binding_calls.push_back(std::string("word ") + (name == nullptr ? "without a name" : name));
  return 33;
}

// It has seen the result of the word.
const char* count_calls() {
  binding_calls.push_back("rest");
  return "\nadded 1\n";
}

constexpr tq_com_word kWords[] = {{"start_exact", answer_33, nullptr},
                                  {"status_all", answer_33, nullptr},
                                  {"refresh_apps", answer_33, count_calls},
                                  {nullptr, nullptr, nullptr}};

TEST_F(ComProtocol, WordsOfTheHostAreAnsweredLikeStartApp) {
  tq_set_com_words(kWords);
  EXPECT_EQ(serve("start_exact\nclock\nmore\n"), "33\n\n");
  EXPECT_EQ(serve("start_exact\r\n"), "33\n\n");
  EXPECT_THAT(binding_calls, ElementsAre("word clock", "word without a name"));
}

TEST_F(ComProtocol, WordsOfTheHostMayHaveMoreToSayThanACode) {
  tq_set_com_words(kWords);
  EXPECT_EQ(serve("refresh_apps\n"), "33\nadded 1\n");
  EXPECT_THAT(binding_calls, ElementsAre("word without a name", "rest"));
}

TEST_F(ComProtocol, WordsOfTheHostReplaceNoneOfTheProtocol) {
  tq_set_com_words(kWords);
  EXPECT_EQ(serve("status_all\n"), "");
  EXPECT_THAT(binding_calls, IsEmpty());
}

TEST_F(ComProtocol, WordsOfTheHostAreUnknownUnlessItHasThem) {
  EXPECT_EQ(serve("start_exact\nclock\n"), "");
  tq_set_com_words(kWords);
  EXPECT_EQ(serve("stop_exact\nclock\n"), "");
  tq_set_com_words(nullptr);
  EXPECT_EQ(serve("start_exact\nclock\n"), "");
  EXPECT_THAT(binding_calls, IsEmpty());
}

TEST_F(ComProtocol, LineEndsAreCut) {
  EXPECT_EQ(serve("stop_all\r\n"), "0\n");
  EXPECT_EQ(serve("start_app\r\nclock\r\n"), "0\n\n");
  EXPECT_EQ(serve("stop_app\nclock\r\n"), "0\n\n");
}

TEST_F(ComProtocol, LastLineNeedsNoLineEnd) {
  EXPECT_EQ(serve("stop_all"), "0\n");
  EXPECT_EQ(serve("start_app\nclock"), "0\n\n");
}

TEST_F(ComProtocol, FurtherLinesAreReadAndIgnored) {
  EXPECT_EQ(serve("stop_all\nstart_all\nmore\n"), "0\n");
  EXPECT_EQ(serve("start_app\nclock\nwebserver\n"), "0\n\n");
  EXPECT_THAT(binding_calls, ElementsAre("start clock"));
}

TEST_F(ComProtocol, NulByteEndsItsLineEarly) {
  set_three_statuses();
  using namespace std::string_literals;
  EXPECT_EQ(serve("stop_all\0junk\n"s), "0\n");
  EXPECT_EQ(serve("\0stop_all\n"s), "");
  EXPECT_EQ(serve("start_app\ncl\0zzz\n"s), "0\n\n");
  EXPECT_EQ(serve(std::string(1000, '\0')), "");
}

TEST_F(ComProtocol, NamesArriveWholeUpTo254Bytes) {
  const LogCapture log(TQ_LOG_DEBUG);
  const std::string name(254, 'n');
  EXPECT_EQ(serve("start_app\n" + name + "\n"), "22\n\n");
  EXPECT_TRUE(log.contains(TQ_LOG_DEBUG, kUnit, "Handling start app " + name + " "));
}

std::vector<std::string> received_lines(const LogCapture& log) {
  std::vector<std::string> lines;
  const std::string start = "debug: receive line ";
  for (const std::string& message : unit_messages(log, kUnit))
    if (message.starts_with(start)) lines.push_back(message.substr(start.size()));
  return lines;
}

TEST_F(ComProtocol, LineLongerThan254BytesComesInPieces) {
  const std::string x(600, 'x');
  using Lines = std::vector<std::string>;
  const std::pair<std::string, Lines> rows[] = {
      {x.substr(0, 253) + "\n", {x.substr(0, 253)}},
      {x.substr(0, 254) + "\n", {x.substr(0, 254), ""}},
      {x.substr(0, 255) + "\n", {x.substr(0, 254), "x"}},
      {x.substr(0, 300) + "\n", {x.substr(0, 254), x.substr(0, 46)}},
      {x.substr(0, 253) + "\r\n", {x.substr(0, 253) + "\r", ""}},
      {x, {x.substr(0, 254), x.substr(0, 254), x.substr(0, 92)}},
  };
  LogCapture log(TQ_LOG_DEBUG);
  for (const auto& [request, expected] : rows) {
    log.clear();
    EXPECT_EQ(serve(request), "");
    EXPECT_EQ(received_lines(log), expected);
  }
}

TEST_F(ComProtocol, RestOfALongLineIsTheNextLine) {
  // The rest of an overlong command is read as the name, and the command is unknown.
  EXPECT_EQ(serve(std::string(254, 'x') + "stop_all\n"), "");
  // A long name is cut, and its rest is ignored as a further line.
  EXPECT_EQ(serve("start_app\n" + std::string(300, 'x') + "\n"), "22\n\n");
}

TEST_F(ComProtocol, StatusReplyIsLogged) {
  set_status("web", 0, "");
  set_status("clock", 0, "");
  const LogCapture log(TQ_LOG_DEBUG);
  serve("status_all\nmore\n");
  EXPECT_THAT(
      unit_messages(log, kUnit),
      ElementsAre("debug: Com request handler", "debug: receive line status_all",
                  "debug: receive line more", "debug: Get status list size 2 ", "debug: list first",
                  "debug: sending status of web", "debug: sending status of web done",
                  "debug: sending status of web next done", "debug: sending status of clock",
                  "debug: sending status of clock done", "debug: sending status of clock next done",
                  "debug: sending status done"));
}

TEST_F(ComProtocol, EmptyStatusReplyIsLogged) {
  const LogCapture log(TQ_LOG_DEBUG);
  serve("status_app\n");
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: Com request handler", "debug: receive line status_app",
                          "debug: Get status list size 0 ", "debug: list first",
                          "debug: sending status done"));
}

TEST_F(ComProtocol, CommandIsLogged) {
  using Messages = std::vector<std::string>;
  const std::pair<const char*, Messages> rows[] = {
      {"", {}},
      {"unknown\n", {"receive line unknown"}},
      {"start_app\nclock\n",
       {"receive line start_app", "receive line clock", "Handling start app clock "}},
      {"start_app\n", {"receive line start_app"}},
      {"start_all\n", {"receive line start_all", "Handling start all app", "start all app end"}},
      {"stop_app\nclock\n",
       {"receive line stop_app", "receive line clock", "Handling stop app clock "}},
      {"stop_app\n", {"receive line stop_app"}},
      {"stop_all\n", {"receive line stop_all", "Handling stop all app"}},
  };
  LogCapture log(TQ_LOG_DEBUG);
  for (const auto& [request, messages] : rows) {
    log.clear();
    serve(request);
    Messages expected = {"debug: Com request handler"};
    for (const std::string& message : messages) expected.push_back("debug: " + message);
    EXPECT_EQ(unit_messages(log, kUnit), expected);
  }
}

TEST_F(ComProtocol, StatusRequestLeavesItsFirstRecordAllocated) {
  set_three_statuses();
  const LiveAllocations live;
  serve("status_all\n");
  EXPECT_EQ(live.count(), 3);  // record, name and detail
  serve("status_app\n");
  EXPECT_EQ(live.count(), 6);
}

TEST_F(ComProtocol, StatusRequestLeavesNothingAllocatedOnceThatIsRepaired) {
  const Repairs repairs(TQ_REPAIR_STATUS_RECORDS);
  set_three_statuses();
  const LiveAllocations live;
  EXPECT_EQ(serve("status_all\n"),
            "web\n0\nstarted app\ndisk\n1\nnearly full\nclock\n2\nstart app failed.\n");
  EXPECT_EQ(live.count(), 0);
  serve("status_app\n");
  EXPECT_EQ(live.count(), 0);
}

TEST_F(ComProtocol, OtherRequestsLeaveNothingAllocated) {
  serve("start_all\n");
  serve("stop_all\n");
  const LiveAllocations live;
  for (const char* request : {"", "status_all\n", "status_app\nclock\n", "unknown\na\nb\n",
                              "start_app\n", "start_app\nno-such\n", "stop_app\n", "stop_all\n"}) {
    serve(request);
    EXPECT_EQ(live.count(), 0) << request;
  }
}

std::string descriptors_of_started;

TEST_F(ComProtocol, StartedApplicationInheritsNoSocket) {
  linux_app_binding->start = [](tq_app_info*) {
    descriptors_of_started = child_descriptors();
    return 0;
  };
  const std::string before = child_descriptors();
  EXPECT_EQ(serve("start_app\nclock\n"), "0\n\n");
  EXPECT_EQ(descriptors_of_started, before);
}

TEST_F(ComProtocol, MegabyteWithoutALineEndAnswersNothing) {
  auto [client, server] = socket_pair();
  std::thread sender([&client = client] {
    client.send(std::string(1 << 20, 'x'));
    client.end_sending();
  });
  EXPECT_EQ(serve(client, std::move(server)), "");
  sender.join();
}

TEST_F(ComProtocol, TenThousandLinesAreReadToTheirEnd) {
  std::string request = "stop_all\n";
  for (int i = 0; i < 10000; ++i) request += "further line\n";
  auto [client, server] = socket_pair();
  std::thread sender([&client = client, &request] {
    client.send(request);
    client.end_sending();
  });
  EXPECT_EQ(serve(client, std::move(server)), "0\n");
  sender.join();
}

}  // namespace
}  // namespace tarvio_test
