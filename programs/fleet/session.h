// A connection to the broker, by MQTT 5, that comes back by itself.
#ifndef TARVIO_FLEET_SESSION_H
#define TARVIO_FLEET_SESSION_H

#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>

#include "base/deadline.h"
#include "fleet/broker.h"

namespace fleet {

struct Message {
  std::string topic;
  std::string payload;
  bool is_retained = false;
  int qos = 1;
  // Of a request: where the answer goes, and what makes it known there. Empty for none.
  std::string response_topic = {};
  std::string correlation = {};
  // For which the broker keeps it for who is not connected; of a message that has come, what is
  // left of that.
  std::optional<uint32_t> seconds = std::nullopt;
};

struct SessionSettings {
  Broker broker;
  std::string client_id;
  std::optional<Message> will =
      std::nullopt;           // what the broker publishes once the connection is lost
  uint32_t kept_seconds = 0;  // for which the broker keeps messages meanwhile
  uint32_t max_message_bytes = 0;
  // After as long a silence it asks the broker for a sign of life, and gives it up after another
  // one.
  int keep_alive_seconds = 60;
  // After which it tries again to connect; 0: after delays that spread a fleet.
  int retry_ms = 0;
};

struct Event {
  enum class Kind { kConnected, kLost, kMessage, kDelivered };
  Kind kind;
  std::string cause = {};  // of the loss, with the broker's name
  Message message = {};
  int id = 0;      // of the delivered message
  int reason = 0;  // of the broker for what it did with that

  [[nodiscard]] bool is_refused() const { return reason >= 0x80; }
};

// The delays before the tries to connect: spread, so that a fleet does not come back at once.
class Delays {
 public:
  explicit Delays(uint32_t seed) : random_(seed) {}

  // After a connection that was lost, or the beginning.
  int first_ms();
  int next_ms();

 private:
  int spread(int from_ms, int to_ms);

  std::mt19937 random_;
  int longest_ms_ = 2000;  // at the beginning, when a network may come a moment later
};

// A message is longer than the broker takes.
struct TooLong : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Session {
 public:
  // Throws std::runtime_error for certificates or a password that cannot be used.
  explicit Session(const SessionSettings& settings);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session();

  // What to wait for: a descriptor, -1 for none, with its events, and a point in time.
  [[nodiscard]] int fd() const;
  [[nodiscard]] short events() const;
  [[nodiscard]] tarvio::Deadline due() const { return due_; }

  // Goes on, after such a wait. Never waits itself.
  void step(short happened);

  // What has happened, one after another.
  std::optional<Event> next_event();

  [[nodiscard]] bool is_connected() const;

  // Only of a session that is connected. Publishing returns a number that is delivered, unless the
  // connection is lost before, for a message with a quality of service; that one is published again
  // after the loss. Both throw std::runtime_error, the first a TooLong as well, but not for a
  // connection that turns out to be lost, which is an event.
  int publish(const Message& message);
  void subscribe(const std::string& filter, int qos = 1);

  // Says good-bye: the will is not published.
  void disconnect();

 private:
  struct Callbacks;
  struct Client;
  struct Attempt;

  void set_up();
  void connect();
  void end_attempt();
  void lose(const std::string& cause);
  void check(int result, const char* what) const;
  void take_result(int result, const char* what);  // of sending

  const SessionSettings settings_;
  std::shared_ptr<Client> client_;    // shared with an attempt, which may outlive the session
  std::shared_ptr<Attempt> attempt_;  // to connect; until it has ended nothing touches the client
  Delays delays_;
  tarvio::Deadline due_ = tarvio::Deadline::never();
  bool is_open_ = false;  // the connection to the broker, whether it is accepted or not
};

}  // namespace fleet

#endif
