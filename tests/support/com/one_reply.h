// A manager that a test plays itself, to answer what no real one would.
#ifndef TARVIO_TESTS_SUPPORT_COM_ONE_REPLY_H
#define TARVIO_TESTS_SUPPORT_COM_ONE_REPLY_H

#include <unistd.h>

#include <latch>
#include <string>
#include <thread>
#include <utility>

#include "support/com/sockets.h"
#include "tarvio/com.h"

namespace tarvio_test {

// Serves one connection on TQ_COM_SOCKET_PATH: keeps the request and gives a reply. Its end waits
// for that connection.
class OneReply {
 public:
  explicit OneReply(std::string reply)
      : reply_(std::move(reply)), listener_(listen_on(TQ_COM_SOCKET_PATH)), thread_([this] {
          began_.count_down();
          const Socket client = accept_on(listener_);
          request_ = client.read_to_end();
          client.send(reply_);
        }) {
    // A child that is forked while a thread begins may find a lock of the sanitizers taken forever.
    began_.wait();
  }
  ~OneReply() {
    if (thread_.joinable()) thread_.join();
    ::unlink(TQ_COM_SOCKET_PATH);
  }
  OneReply(const OneReply&) = delete;
  OneReply& operator=(const OneReply&) = delete;

  std::string request() {
    thread_.join();
    return request_;
  }

 private:
  std::string reply_;
  std::string request_;
  Socket listener_;
  std::latch began_{1};
  std::thread thread_;
};

}  // namespace tarvio_test

#endif
