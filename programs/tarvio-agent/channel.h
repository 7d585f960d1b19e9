// What the two processes of the agent tell each other: records of a few texts.
#ifndef TARVIO_AGENT_CHANNEL_H
#define TARVIO_AGENT_CHANNEL_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "base/owners.h"

namespace agent {

// The program that speaks to the broker; its operands are the file of the settings and the number
// of the descriptor of the channel.
inline constexpr char kLinkProgram[] = "tarvio-agent-link";

// The first text says what it is.
using Record = std::vector<std::string>;

// From the link, which speaks to the broker.
inline constexpr char kConnected[] = "connected";
inline constexpr char kLost[] = "lost";            // CAUSE KEPT
inline constexpr char kRequested[] = "requested";  // PAYLOAD RESPONSE-TOPIC CORRELATION SECONDS
inline constexpr char kDelivered[] = "delivered";  // what was to be published last
inline constexpr char kNotTaken[] = "not-taken";   // that, by the broker, which does not allow it
inline constexpr char kTooLong[] = "too-long";     // that, for the broker
// KEPT is "1" when it will send once more by itself, after the loss, what was to be published last.

// To it.
inline constexpr char kPublish[] = "publish";  // TOPIC PAYLOAD QOS RETAINED CORRELATION

// The other process has ended, or what it says is not a record.
struct ChannelClosed {};

class Channel {
 public:
  explicit Channel(tarvio::Fd socket) : socket_(std::move(socket)) {}

  [[nodiscard]] int fd() const { return socket_.get(); }

  // Waits until the other process takes it, and takes in what that sends meanwhile: it may wait for
  // this one. Throws ChannelClosed.
  void send(const Record& record);

  // Takes in what has come, without waiting. Throws ChannelClosed.
  void receive();
  // The next record that is whole.
  std::optional<Record> next();
  // Whether something has come since there was no next one.
  [[nodiscard]] bool has_received() const { return has_received_; }

 private:
  tarvio::Fd socket_;
  std::string bytes_;
  bool has_received_ = false;
};

}  // namespace agent

#endif
