// A board as the broker sees it: the agent's part of the conversation, with nothing behind it.
#ifndef TARVIO_BENCH_FLEET_SIMULATED_BOARD_H
#define TARVIO_BENCH_FLEET_SIMULATED_BOARD_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <string>

#include "base/deadline.h"
#include "fleet/session.h"
#include "terminal/json.h"

namespace tarvio_bench {

// What a board tells the measuring process, in memory that both have. Times are of the monotonic
// clock.
struct BoardRecord {
  std::atomic<int64_t> tried_ns;    // the newest try to connect that the broker was there for
  std::atomic<int64_t> settled_ns;  // since when the broker has all facts; 0 while it does not
  std::atomic<int64_t> changed_ns;  // the newest change of an application
  std::atomic<uint32_t> changes;
  std::atomic<uint32_t> failed_tries;
  // Of the present connection, as the kernel counts them: with TLS, without the headers of TCP.
  std::atomic<uint64_t> sent_packets;
  std::atomic<uint64_t> sent_bytes;
  std::atomic<uint64_t> received_bytes;
};

int64_t now_ns();

// "board-00007"
std::string board_name(int number);

class SimulatedBoard {
 public:
  SimulatedBoard(int number, const fleet::Broker& broker, BoardRecord& record);

  [[nodiscard]] int fd() const { return session_.fd(); }
  [[nodiscard]] short events() const { return session_.events(); }
  [[nodiscard]] tarvio::Deadline due() const { return session_.due(); }
  void step(short happened);

  // An application starts once more.
  void change();
  void count_traffic();

 private:
  void take(const fleet::Event& event);
  void take_connection();
  void take_request(const fleet::Message& message);
  void take_loss();
  void take_delivery(int id);

  [[nodiscard]] std::string apps() const;
  [[nodiscard]] std::string system() const;
  [[nodiscard]] static std::string packages();
  void keep(const char* fact, const std::string& text);
  void add(fleet::Message message);
  void send_next();

  const std::string name_;
  BoardRecord& record_;
  fleet::Session session_;
  std::deque<fleet::Message> outbox_;
  int last_id_ = 0;
  bool is_waiting_ = false;  // for the broker to take the first message
};

}  // namespace tarvio_bench

#endif
