// The connections of clients whose requests are not complete yet.
#ifndef TARVIOD_CONNECTIONS_H
#define TARVIOD_CONNECTIONS_H

#include <poll.h>
#include <stddef.h>

#include <array>

#include "base/deadline.h"
#include "tarvio/com.h"

namespace tarviod {

// Hands each connection over when its request is complete: its sending side is shut, or enough has
// come. So a client that is silent keeps no other one waiting; of several, the one that connected
// first. For one thread, to the end of the process: nothing is closed before.
class Connections {
 public:
  static constexpr size_t kMax = 64;
  // A request of this size needs no end: none of the two lines that count, of at most 254 bytes
  // each, reaches further.
  static constexpr int kEnoughBytes = 2 * 254;

  // handler  takes a connection over and closes it.
  void open(int listening_fd, tq_com_handler_func handler);

  // Of those whose requests are not complete.
  [[nodiscard]] size_t count() const { return count_; }
  // A client is connected.
  [[nodiscard]] bool has_client() const;

  // Descriptors that end a wait as well, and what has become of them.
  using Others = std::array<pollfd, 2>;

  // Waits until there is something to do, for these or for the others, or the time has come.
  void wait(Others& others, const tarvio::Deadline& until);
  // Does one thing of those that were found: serves a client, accepts one, or ends the connection
  // whose time is over. False when there was nothing to do.
  bool advance();

 private:
  struct Connection {
    int fd = -1;
    tarvio::Deadline until = tarvio::Deadline::never();
    bool has_enough = false;
  };
  enum : size_t { kOther, kListening = kOther + std::tuple_size_v<Others>, kFirst };  // in files_

  bool accept_one();
  bool end_overdue();
  void serve(int client, bool has_ended);
  bool make_room();
  // Lets go of a connection, which is the caller's then.
  int remove(size_t at);

  int listening_fd_ = -1;
  tq_com_handler_func handler_ = nullptr;
  std::array<Connection, kMax> all_;  // the oldest first
  size_t count_ = 0;
  std::array<pollfd, kFirst + kMax> files_ = {};
};

}  // namespace tarviod

#endif
