#include "fleet/broker.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "runtime/conf_file.h"
#include "support/files.h"

namespace tarvio_test {
namespace {

using fleet::Broker;

Broker broker_in(const std::string& text) {
  const TempDir directory;
  const std::string file = directory / "conf";
  write_file(file, text);
  runtime::ConfFile conf;
  runtime::Mistake mistake;
  EXPECT_TRUE(runtime::read_conf_file(file.c_str(), runtime::MissingFile::kRefused,
                                      fleet::complaint_about_broker, conf, mistake))
      << mistake.why;
  return fleet::broker_in(conf.pairs.get(), "x.conf");
}

std::string complaint_about(const std::string& text) {
  try {
    (void)broker_in(text);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(FleetBroker, HasTlsUnlessItIsSwitchedOff) {
  EXPECT_TRUE(broker_in("broker: mqtt.example\n").has_tls);
  EXPECT_EQ(broker_in("broker: mqtt.example\n").port, 8883);
  EXPECT_EQ(broker_in("broker: mqtt.example\ntls: no\n").port, 1883);
}

TEST(FleetBroker, HasAHostAndAPort) {
  const struct {
    const char* text;
    const char* host;
    int port;
    const char* name;
  } rows[] = {{"mqtt.example", "mqtt.example", 8883, "mqtt.example:8883"},
              {"mqtt.example:1", "mqtt.example", 1, "mqtt.example:1"},
              {"[fe80::1]", "fe80::1", 8883, "[fe80::1]:8883"},
              {"[fe80::1]:65535", "fe80::1", 65535, "[fe80::1]:65535"}};
  for (const auto& row : rows) {
    EXPECT_EQ(fleet::complaint_about_broker("broker", row.text), nullptr) << row.text;
    const Broker broker = broker_in(std::string("broker: ") + row.text + "\n");
    EXPECT_EQ(broker.host, row.host);
    EXPECT_EQ(broker.port, row.port);
    EXPECT_EQ(broker.name(), row.name);
  }
}

TEST(FleetBroker, RefusesAnAddressThatIsNone) {
  for (const char* text :
       {":1", "host:", "host:0", "host:65536", "host:x", "[::1", "[]:1", "[::1]x", "fe80::1"}) {
    EXPECT_STREQ(fleet::complaint_about_broker("broker", text),
                 "the value is not HOST or HOST:PORT")
        << text;
  }
}

TEST(FleetBroker, RefusesPathsThatDependOnTheDirectory) {
  for (const char* key : {"ca_file", "certificate", "key", "password_file"}) {
    EXPECT_STREQ(fleet::complaint_about_broker(key, "file"),
                 "the value is not a path that begins with /");
    EXPECT_EQ(fleet::complaint_about_broker(key, "/file"), nullptr);
  }
}

TEST(FleetBroker, RefusesHalfAPair) {
  EXPECT_EQ(complaint_about(""), "x.conf: has no broker: add the line 'broker: HOST'");
  EXPECT_EQ(complaint_about("broker: b\nkey: /k\n"),
            "x.conf: has only one of certificate and key: add the other one");
  EXPECT_EQ(complaint_about("broker: b\nuser: u\n"),
            "x.conf: has only one of user and password_file: add the other one");
  EXPECT_EQ(complaint_about("broker: b\ntls: no\nca_file: /c\n"),
            "x.conf: has 'tls: no' and certificates: remove one of them");
}

TEST(FleetPassword, IsTheFirstLine) {
  const TempDir directory;
  write_file(directory / "password", "sesame\r\nmore\n");
  EXPECT_EQ(fleet::password_in(directory / "password"), "sesame");
}

TEST(FleetPassword, MustBeReadable) {
  const TempDir directory;
  const std::string file = directory / "password";
  try {
    (void)fleet::password_in(file);
    ADD_FAILURE() << "no complaint";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()),
              "password_file '" + file + "' cannot be read: No such file or directory");
  }
}

}  // namespace
}  // namespace tarvio_test
