// The example settings of the broker: what boards, operators and others may do there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>

#include "support/fleet/agent_process.h"
#include "support/fleet/broker_process.h"
#include "support/packages/tarvio_packages.h"

namespace tarvio_test {
namespace {

using testing::HasSubstr;

constexpr char kFleetFiles[] = TARVIO_FLEET_FILES;
constexpr int kBoards = 8883;
constexpr int kOperators = 8884;
constexpr std::chrono::milliseconds kLongEnough{300};

class FleetAccess : public testing::Test {
 protected:
  FleetAccess() {
    use_built_programs();
    std::filesystem::permissions(place_.path(), std::filesystem::perms(0755));
    make("ca");
    make("server localhost 127.0.0.1");
    for (const char* name : {"board-1", "board-2"}) make("board " + std::string(name));
    for (const char* name : {"operator", "viewer"}) make("operator " + std::string(name));
    // Those who read them are not root.
    shell(place_.path(), "chmod 644 *.key");
    shell(place_.path(), "touch passwords && sed -e 's#/etc/mosquitto/certs#" + path("") +
                             "#; s#/etc/mosquitto/tarvio-passwords#" + path("passwords") +
                             "#; s#/etc/mosquitto/tarvio-access#" + kFleetFiles +
                             "/access#; s#^persistence .*#persistence false#; "
                             "s#/usr/share/tarvio/fleet-page#" +
                             path("") + "#' " + kFleetFiles + "/mosquitto.conf >conf");
    restart_broker();
  }

  void make(const std::string& what) const {
    shell(place_.path(), std::string(kFleetFiles) + "/certificates " + what);
  }
  std::string path(const std::string& name) const { return place_ / name; }

  fleet::Broker broker_for(const std::string& name, int port) const {
    fleet::Broker broker;
    broker.host = "localhost";
    broker.port = port;
    broker.ca_file = path("ca.crt");
    broker.certificate = name.empty() ? "" : path(name + ".crt");
    broker.key = name.empty() ? "" : path(name + ".key");
    return broker;
  }
  std::string agent_lines(const std::string& name) const {
    return "broker: localhost\nca_file: " + path("ca.crt") +
           "\ncertificate: " + path(name + ".crt") + "\nkey: " + path(name + ".key") + "\n";
  }

  void restart_broker() {
    broker_.reset();
    broker_ = std::make_unique<BrokerProcess>(read_file(path("conf")));
  }

  const TempDir place_;
  std::unique_ptr<BrokerProcess> broker_;
};

class BoardWithCertificate : public FleetAccess {
 protected:
  void SetUp() override {
    ASSERT_TRUE(operator_.until([this] { return is_online(); }));
  }

  bool is_online() { return operator_.text_of("tarvio/v1/board-1/online") == R"({"online":true})"; }
  static fleet::Message request(const std::string& operator_name = "operator") {
    return {.topic = "tarvio/v1/board-1/request",
            .payload = R"({"id":"r1","command":"list","expires_in":60})",
            .response_topic = "tarvio/v1/board-1/answer/" + operator_name};
  }

  Watcher operator_{broker_for("operator", kOperators), "operator"};
  AgentProcess agent_{"board-1", "", agent_lines("board-1")};
};

TEST_F(BoardWithCertificate, IsSeenAndAskedByAnOperator) {
  operator_.publish(request());
  EXPECT_TRUE(operator_.until(
      [&] { return !operator_.text_of("tarvio/v1/board-1/answer/operator").empty(); }));
}

TEST_F(BoardWithCertificate, IsNotSeenByAnotherBoard) {
  Watcher other(broker_for("board-2", kBoards), "board-2", {"#", "tarvio/v1/board-1/+"});
  operator_.publish({.topic = "tarvio/v1/board-2/request", .payload = "for the other"});
  operator_.publish(request());
  ASSERT_TRUE(other.until([&] { return !other.messages().empty(); }));
  other.watch(kLongEnough);
  for (const fleet::Message& message : other.messages()) {
    EXPECT_EQ(message.topic, "tarvio/v1/board-2/request");
  }
}

TEST_F(BoardWithCertificate, IsNotPosedAsByAnotherBoard) {
  Watcher other(broker_for("board-2", kBoards), "board-2");
  for (const char* end : {"online", "system", "apps", "packages", "progress", "answer/operator"}) {
    other.publish({.topic = std::string("tarvio/v1/board-1/") + end, .payload = "forged"});
    other.publish({.topic = std::string("tarvio/v1/board-2/") + end, .payload = "its own"});
  }
  ASSERT_TRUE(operator_.until(
      [&] { return !operator_.text_of("tarvio/v1/board-2/answer/operator").empty(); }));
  for (const fleet::Message& message : operator_.messages()) EXPECT_NE(message.payload, "forged");
}

// Of boards and of operators, in place of certificates.
TEST(FleetPasswords, LetIn) {
  use_built_programs();
  const TempDir place;
  std::filesystem::permissions(place.path(), std::filesystem::perms(0755));
  write_file(place / "passwords", "");
  for (const std::string name : {"board-1", "ann"}) {
    shell(place.path(), "mosquitto_passwd -b passwords " + name + " secret-of-" + name);
    write_file(place / name, "secret-of-" + name + '\n');
  }
  shell(place.path(), "chmod 644 *");
  const BrokerProcess broker("listener 18830 127.0.0.1\npassword_file " +
                             (place / "passwords").string() + "\n");
  fleet::Broker of_operator = plain_broker();
  of_operator.user = "ann";
  of_operator.password_file = place / "ann";
  Watcher watcher(of_operator, "ann");
  ASSERT_TRUE(watcher.is_connected()) << watcher.cause();
  const auto lines = [&](const std::string& file) {
    return "user: board-1\npassword_file: " + (place / file).string() + '\n';
  };
  const AgentProcess agent("board-1", lines("board-1"));
  EXPECT_TRUE(watcher.until(
      [&] { return watcher.text_of("tarvio/v1/board-1/online") == R"({"online":true})"; }));
  AgentProcess wrong("board-1", lines("ann"));
  EXPECT_TRUE(wrong.program().says("the broker refuses it: Not authorized"));
}

TEST_F(FleetAccess, SaysThatTheNameIsNotThatInTheCertificate) {
  AgentProcess agent("desk", "", agent_lines("board-1"));
  EXPECT_TRUE(
      agent.program().says("'device' must be the name in its certificate, or of its user; see the "
                           "broker's access file"));
  EXPECT_THAT(agent.program().errors(),
              HasSubstr("the broker does not let this board publish to 'tarvio/v1/desk/"));
}

TEST_F(BoardWithCertificate, IsNotPushedOutByAnotherBoard) {
  Watcher other(broker_for("board-2", kBoards), "board-1");
  EXPECT_TRUE(other.is_connected());
  operator_.watch(kLongEnough);
  EXPECT_TRUE(is_online());
  EXPECT_THAT(agent_.program().errors(), testing::Not(HasSubstr("is lost")));
}

TEST_F(BoardWithCertificate, IsNotPushedOutByABoardAtThePortOfOperators) {
  const Watcher other(broker_for("board-2", kOperators), "board-1");
  EXPECT_FALSE(other.is_connected());
  operator_.watch(kLongEnough);
  EXPECT_TRUE(is_online());
  EXPECT_THAT(agent_.program().errors(), testing::Not(HasSubstr("is lost")));
}

TEST_F(BoardWithCertificate, IsNotMadeUpByAViewer) {
  Watcher viewer(broker_for("viewer", kOperators), "viewer");
  for (const char* end : {"online", "system", "apps", "packages", "progress", "answer/operator"}) {
    viewer.publish({.topic = std::string("tarvio/v1/viewer/") + end, .payload = "forged"});
  }
  viewer.watch(kLongEnough);
  operator_.watch(kLongEnough);
  for (const fleet::Message& message : operator_.messages()) EXPECT_NE(message.payload, "forged");
}

TEST_F(BoardWithCertificate, IsForgottenWhenItIsRevokedAndCleared) {
  make("revoke board-1");
  restart_broker();
  ASSERT_TRUE(operator_.until([this] { return operator_.connections() > 1; }));
  EXPECT_FALSE(Watcher(broker_for("board-1", kBoards), "board-1").is_connected());
  EXPECT_TRUE(Watcher(broker_for("board-2", kBoards), "board-2").is_connected());
  for (const char* end : {"online", "system", "apps", "packages"}) {
    operator_.publish(
        {.topic = std::string("tarvio/v1/board-1/") + end, .payload = "", .is_retained = true});
  }
  ASSERT_TRUE(
      operator_.until([this] { return operator_.text_of("tarvio/v1/board-1/packages").empty(); }));
  Watcher later(broker_for("operator", kOperators), "later", {"tarvio/v1/+/+"});
  later.watch(kLongEnough);
  EXPECT_TRUE(later.messages().empty());
}

TEST_F(BoardWithCertificate, IsNotAskedByAnotherBoardOrByAViewer) {
  Watcher other(broker_for("board-2", kBoards), "board-2");
  Watcher viewer(broker_for("viewer", kOperators), "viewer");
  other.publish(request("board-2"));
  viewer.publish(request("viewer"));
  viewer.watch(kLongEnough);
  operator_.publish(request());
  ASSERT_TRUE(operator_.until(
      [&] { return !operator_.text_of("tarvio/v1/board-1/answer/operator").empty(); }));
  EXPECT_EQ(operator_.text_of("tarvio/v1/board-1/answer/board-2"), "");
  EXPECT_EQ(operator_.text_of("tarvio/v1/board-1/answer/viewer"), "");
  EXPECT_EQ(viewer.text_of("tarvio/v1/board-1/online"), R"({"online":true})");
  EXPECT_EQ(viewer.count_of("tarvio/v1/board-1/request"), 0U);
}

TEST_F(BoardWithCertificate, IsInNoRolloutOfAViewer) {
  Watcher viewer(broker_for("viewer", kOperators), "viewer");
  viewer.publish({.topic = "tarvio-fleet/v1/rollouts/r1", .payload = "forged"});
  viewer.watch(kLongEnough);
  operator_.watch(kLongEnough);
  EXPECT_EQ(operator_.text_of("tarvio-fleet/v1/rollouts/r1"), "");
}

TEST_F(FleetAccess, HasNoCertificateForWhatIsNoHost) {
  shell(place_.path(), "rm server.*");
  for (const char* host : {"'a b'", "1.2.3", "1.2.3.256", "a..b", "-a", "a_b", "1:g"}) {
    SCOPED_TRACE(host);
    shell(place_.path(), "! " + std::string(kFleetFiles) + "/certificates server good.example " +
                             host + " 2>said");
    EXPECT_THAT(read_file(path("said")), HasSubstr("is neither the name of a host nor an address"));
    EXPECT_FALSE(std::filesystem::exists(path("server.key")));
  }
}

TEST_F(FleetAccess, ShowsWhyACertificateCannotBeMadeAndLeavesNothingBehind) {
  shell(place_.path(), "rm server.*");
  shell(place_.path(), "! " + std::string(kFleetFiles) + "/certificates server 1:2 2>said");
  EXPECT_THAT(read_file(path("said")), AllOf(HasSubstr("certificates: cannot sign 'server.crt':\n"),
                                             HasSubstr("bad ip address")));
  EXPECT_FALSE(std::filesystem::exists(path("server.key")));
  make("server ::1 localhost a-1.example 10.0.0.255");
}

TEST_F(FleetAccess, NeedsACertificate) {
  const Watcher nobody(broker_for("", kBoards), "nobody");
  EXPECT_FALSE(nobody.is_connected());
  EXPECT_THAT(nobody.cause(), HasSubstr("cannot connect to the broker localhost:8883: "));
}

// What the guide recommends for those who are trusted less.
TEST_F(FleetAccess, LetsNoViewerTakeTheIdOfABoardWhereTheNameIsTheId) {
  write_file(path("conf"),
             std::regex_replace(read_file(path("conf")), std::regex("listener 8884\n"),
                                "listener 8884\nuse_username_as_clientid true\n"));
  restart_broker();
  Watcher board(broker_for("board-1", kBoards), "board-1");
  const Watcher viewer(broker_for("viewer", kOperators), "board-1");
  EXPECT_TRUE(viewer.is_connected());
  board.watch(kLongEnough);
  EXPECT_TRUE(board.is_connected());
  EXPECT_EQ(board.cause(), "");
}

TEST_F(FleetAccess, IsForOperatorsAtTheirPortAlone) {
  EXPECT_FALSE(Watcher(broker_for("operator", kBoards), "operator").is_connected());
}

TEST_F(FleetAccess, IsNotForARevokedOperator) {
  make("revoke operator");
  restart_broker();
  EXPECT_FALSE(Watcher(broker_for("operator", kOperators), "operator").is_connected());
  EXPECT_TRUE(Watcher(broker_for("viewer", kOperators), "viewer").is_connected());
}

TEST_F(FleetAccess, SaysThatTheBrokerIsNotTheOneThatIsMeant) {
  std::filesystem::create_directory(path("other"));
  shell(path("other"), std::string(kFleetFiles) + "/certificates ca");
  fleet::Broker broker = broker_for("board-1", kBoards);
  broker.ca_file = path("other/ca.crt");
  const Watcher board(broker, "board-1");
  EXPECT_FALSE(board.is_connected());
  EXPECT_THAT(board.cause(), HasSubstr("the certificate of the broker is not accepted: "));
}

// As it is for a board whose clock is wrong by years.
TEST_F(FleetAccess, SaysWhatTheClockIsWhenACertificateIsNotValidNow) {
  shell(place_.path(),
        "openssl req -new -key server.key -subj /CN=localhost | openssl x509 -req -CA ca.crt "
        "-CAkey ca.key -CAcreateserial -days -1 -out server.crt");
  broker_->kill();
  broker_->start();
  AgentProcess agent("board-1", "", agent_lines("board-1"));
  EXPECT_TRUE(agent.program().says(
      "tarvio-agent: cannot connect to the broker localhost:8883: the certificate of the broker is "
      "not accepted: certificate has expired; the clock of this device says 20"));
  EXPECT_TRUE(agent.program().says(" UTC: set it if that is wrong\n"));
}

}  // namespace
}  // namespace tarvio_test
