// What is to be published, in its order, each until the broker has it.
#ifndef TARVIO_AGENT_OUTBOX_H
#define TARVIO_AGENT_OUTBOX_H

#include <deque>
#include <functional>
#include <map>
#include <string>

#include "channel.h"

namespace agent {

class Outbox {
 public:
  // device  whose name begins all topics.
  Outbox(const Channel& channel, std::string device)
      : channel_(channel), device_(std::move(device)) {}

  // Keeps a text at the broker. Nothing happens if it is there already.
  void keep(const std::string& name, const std::string& text);
  // Answers a request; calls the function once the broker has the answer.
  void answer(const std::string& topic, const std::string& correlation, const std::string& text,
              std::function<void()> delivered);
  // Says how far something is, if anybody is there to hear it.
  void show(const std::string& text);

  void on_connected();
  void on_lost();
  void on_delivered();

 private:
  struct Item {
    std::string topic;
    std::string text;
    bool is_kept = false;
    bool is_progress = false;
    std::string correlation = {};
    std::function<void()> delivered = {};
  };

  void add(Item item);
  void send_next();

  const Channel& channel_;
  const std::string device_;
  std::deque<Item> items_;
  std::map<std::string, std::string> kept_;  // under their topics
  bool is_connected_ = false;
  bool is_waiting_ = false;  // for the broker to take the first item
};

}  // namespace agent

#endif
