#include "outbox.h"

#include <algorithm>
#include <utility>

#include "fleet/topics.h"

namespace agent {

void Outbox::keep(const std::string& name, const std::string& text) {
  const std::string topic = fleet::topic_of(device_, name);
  std::string& kept = kept_[topic];
  if (kept == text) return;
  kept = text;
  if (is_connected_) add({.topic = topic, .text = text, .is_kept = true});
}

void Outbox::answer(const ReturnAddress& asker, const std::string& text, const std::string& shorter,
                    std::function<void()> delivered) {
  add({.topic = asker.topic,
       .text = text,
       .correlation = asker.correlation,
       .shorter = shorter,
       .delivered = std::move(delivered)});
}

void Outbox::show(const std::string& text) {
  if (is_connected_) {
    add({.topic = fleet::topic_of(device_, fleet::kProgress), .text = text, .is_progress = true});
  }
}

// The broker may have been replaced by one that keeps nothing.
void Outbox::on_connected() {
  is_connected_ = true;
  for (const auto& [topic, text] : kept_) {
    add({.topic = topic, .text = text, .is_kept = true});
  }
  send_next();
}

void Outbox::on_lost(bool is_kept) {
  is_connected_ = false;
  is_waiting_ = is_waiting_ && is_kept;
  const auto first = items_.begin() + (is_waiting_ ? 1 : 0);
  items_.erase(std::remove_if(first, items_.end(),
                              [](const Item& item) { return item.is_kept || item.is_progress; }),
               items_.end());
}

// With which the broker has done.
Outbox::Item Outbox::take_first() {
  is_waiting_ = false;
  Item item = std::move(items_.front());
  items_.pop_front();
  return item;
}

void Outbox::on_delivered() {
  if (!is_waiting_) return;
  const Item item = take_first();
  if (item.delivered) item.delivered();
  send_next();
}

std::string Outbox::on_not_taken() {
  if (!is_waiting_) return "";
  const Item item = take_first();
  send_next();
  return item.topic;
}

void Outbox::on_too_long() {
  if (!is_waiting_) return;
  std::string& text = items_.front().text;
  if (items_.front().shorter.empty() || text == items_.front().shorter) return on_delivered();
  text = items_.front().shorter;
  is_waiting_ = false;
  send_next();
}

// Of what is kept, and of progress, only the newest counts.
void Outbox::add(Item item) {
  const auto first = items_.begin() + (is_waiting_ ? 1 : 0);
  const auto same = std::find_if(first, items_.end(), [&](const Item& each) {
    return (item.is_kept || item.is_progress) && each.topic == item.topic;
  });
  if (same == items_.end()) {
    items_.push_back(std::move(item));
  } else {
    *same = std::move(item);
  }
  send_next();
}

void Outbox::send_next() {
  if (!is_connected_ || is_waiting_ || items_.empty()) return;
  const Item& item = items_.front();
  is_waiting_ = true;
  try {
    channel_.send({kPublish, item.topic, item.text, item.is_progress ? "0" : "1",
                   item.is_kept ? "1" : "0", item.correlation});
  } catch (const ChannelClosed&) {
    // Whoever reads the channel sees it as well, and ends what is to be ended.
    is_connected_ = is_waiting_ = false;
  }
}

}  // namespace agent
