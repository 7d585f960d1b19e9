// What is to be published, in its order, each until the broker has it.
#ifndef TARVIO_AGENT_OUTBOX_H
#define TARVIO_AGENT_OUTBOX_H

#include <deque>
#include <functional>
#include <map>
#include <string>

#include "channel.h"
#include "request_journal.h"

namespace agent {

class Outbox {
 public:
  // device  whose name begins all topics.
  Outbox(Channel& channel, std::string device) : channel_(channel), device_(std::move(device)) {}

  // Keeps a text at the broker. Nothing happens if it is there already.
  void keep(const std::string& name, const std::string& text);
  // Answers a request; calls the function once the broker has the answer.
  //
  // shorter  what goes in its place when it is too long for the broker.
  void answer(const ReturnAddress& asker, const std::string& text, const std::string& shorter,
              std::function<void()> delivered);
  // Says how far something is, if anybody is there to hear it.
  void show(const std::string& text);

  void on_connected();
  // is_kept  whether what was sent last reaches the next connection by itself.
  void on_lost(bool is_kept);
  void on_delivered();
  // The broker does not let this board publish it. Returns its topic; an answer is not delivered
  // then.
  std::string on_not_taken();
  void on_too_long();

  // Whether anything is to go that can go now.
  [[nodiscard]] bool is_sending() const { return is_connected_ && !items_.empty(); }

 private:
  struct Item {
    std::string topic;
    std::string text;
    bool is_kept = false;
    bool is_progress = false;
    std::string correlation = {};
    std::string shorter = {};
    std::function<void()> delivered = {};
  };

  void add(Item item);
  void send_next();
  Item take_first();

  Channel& channel_;
  const std::string device_;
  std::deque<Item> items_;
  std::map<std::string, std::string> kept_;  // under their topics
  bool is_connected_ = false;
  bool is_waiting_ = false;  // for the broker to take the first item
};

}  // namespace agent

#endif
