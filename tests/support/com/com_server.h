// What the tests of com servers share: a directory for the socket, and a log that outlives the
// test, because server threads live, and log, as long as the process.
#ifndef TARVIO_TESTS_SUPPORT_COM_COM_SERVER_H
#define TARVIO_TESTS_SUPPORT_COM_COM_SERVER_H

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "support/com/sockets.h"
#include "support/files.h"
#include "support/hooks/log_capture.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"

namespace tarvio_test {

// Answers with what came and ends the connection.
inline uint32_t echo(int32_t fd) {
  const Socket client(fd);
  client.send(client.read_to_end());
  return 0;
}

inline LogCapture& immortal_log() {
  static auto& log = *new LogCapture(TQ_LOG_DEBUG);
  log.clear();
  return log;
}

class ComServer : public testing::Test {
 protected:
  std::vector<std::string> logged() const {
    return unit_messages(log_, "util/tq_interprocess_com");
  }

  // A thread that has served a connection of this test goes back to its accept before the next one.
  void TearDown() override {
    const auto is_waiting = [](const std::string& message) {
      return message.starts_with("debug: Waiting tq_com_handler");
    };
    std::vector<std::string> messages = live_messages();
    if (std::none_of(messages.begin(), messages.end(), is_waiting)) return;
    for (; !is_waiting(messages.back()); messages = live_messages()) std::this_thread::yield();
    // Nothing shows when it has got from that message into the accept.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }

 private:
  // Without those of a retired server's thread, which keeps trying the number -1.
  std::vector<std::string> live_messages() const {
    std::vector<std::string> messages = logged();
    std::erase_if(messages, [](const std::string& message) {
      return message.ends_with(" -1") || message.ends_with(" -1 ");
    });
    return messages;
  }

 protected:
  const TempDir directory_;
  const std::string path_ = directory_ / "socket";
  LogCapture& log_ = immortal_log();
};

}  // namespace tarvio_test

#endif
