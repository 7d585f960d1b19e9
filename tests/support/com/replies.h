// A manager that a test plays itself, for a client that asks again and again.
#ifndef TARVIO_TESTS_SUPPORT_COM_REPLIES_H
#define TARVIO_TESTS_SUPPORT_COM_REPLIES_H

#include <unistd.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/com/sockets.h"
#include "tarvio/com.h"

namespace tarvio_test {

// Gives each reply once and then none any more, so that the client gives up.
class Replies {
 public:
  explicit Replies(std::vector<std::string> replies)
      : listener_(listen_on(TQ_COM_SOCKET_PATH)), thread_([this, replies = std::move(replies)] {
          for (const std::string& reply : replies) {
            const Socket client = accept_on(listener_);
            requests_.push_back(client.read_to_end());
            client.send(reply);
          }
        }) {}
  ~Replies() {
    if (thread_.joinable()) thread_.join();
    ::unlink(TQ_COM_SOCKET_PATH);
  }
  Replies(const Replies&) = delete;
  Replies& operator=(const Replies&) = delete;

  // Waits until each reply was given.
  std::vector<std::string> requests() {
    thread_.join();
    return requests_;
  }

 private:
  std::vector<std::string> requests_;
  Socket listener_;
  std::thread thread_;
};

}  // namespace tarvio_test

#endif
