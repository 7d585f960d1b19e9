#include "observer.h"

#include <poll.h>

#include <cerrno>
#include <optional>
#include <random>
#include <stdexcept>

#include "fleet/payload.h"
#include "fleet/topics.h"
#include "process/failure.h"

namespace fleet_tool {

namespace {

using client::Failure;
using fleet::Event;
using tarvio::Deadline;

constexpr int kMaxLossMs = 120'000;
constexpr int kFlushMs = 30'000;
constexpr char kFacts[][16] = {"+/online", "+/system", "+/apps", "+/packages", "+/progress"};

std::string client_name(const std::string& operator_name) {
  std::random_device random;
  return operator_name.substr(0, 48) + "-" + std::to_string(random());
}

fleet::SessionSettings session_of(const fleet::Broker& broker, const std::string& client) {
  return {.broker = broker, .client_id = client};
}

}  // namespace

Observer::Observer(const Settings& settings, double seconds) try
    : client_(client_name(settings.operator_name)),
      broker_(settings.broker),
      session_(session_of(broker_, client_)) {
  const Deadline until = Deadline::after_seconds(seconds);
  while (!is_complete_) {
    step(until);
    if (!cause_.empty() && !session_.is_connected()) throw Failure(ENOTCONN, cause_);
    if (until.passed()) {
      throw Failure(ETIMEDOUT,
                    "the broker " + broker_.name() +
                        " does not send what it keeps of the boards; may '" +
                        settings.operator_name + "' read " + std::string(fleet::kDevices) +
                        "# and " + std::string(fleet::kMarks) + "#?",
                    client::kTimeout);
    }
  }
} catch (const std::runtime_error& error) {
  if (dynamic_cast<const Failure*>(&error) != nullptr) throw;
  throw Failure(EINVAL, error.what());
}

void Observer::step(const Deadline& until) {
  pollfd file = {.fd = session_.fd(), .events = session_.events(), .revents = 0};
  const int wait_ms =
      Deadline::sooner(Deadline::sooner(until, session_.due()), lost_until_).remaining_ms();
  if (poll(&file, 1, wait_ms) < 0) file.revents = 0;
  session_.step(file.revents);
  take_events();
}

void Observer::take_events() {
  while (std::optional<Event> event = session_.next_event()) {
    switch (event->kind) {
      case Event::Kind::kConnected:
        on_connected();
        break;
      case Event::Kind::kLost:
        cause_ = event->cause;
        if (!lost_until_.is_set()) lost_until_ = Deadline::after(kMaxLossMs);
        break;
      case Event::Kind::kMessage:
        take(event->message);
        break;
      case Event::Kind::kDelivered:
        --undelivered_;
        break;
    }
  }
  if (lost_until_.passed()) throw Failure(ENOTCONN, cause_);
}

// The broker sends what it keeps before it sends the mark, which comes last. Of what is kept the
// newest is enough, and without acknowledgement the broker drops nothing of a large fleet.
void Observer::on_connected() {
  lost_until_ = Deadline::never();
  undelivered_ = 0;
  for (const char* const fact : kFacts) session_.subscribe(std::string(fleet::kDevices) + fact, 0);
  session_.subscribe(std::string(fleet::kRollouts) + "+", 0);
  session_.subscribe(std::string(fleet::kDevices) + "+/" + fleet::kAnswer + client_);
  const std::string mark = std::string(fleet::kMarks) + client_;
  session_.subscribe(mark, 0);
  (void)session_.publish({.topic = mark, .payload = "", .qos = 0});
  ++undelivered_;
}

void Observer::take(const fleet::Message& message) {
  has_taken_ = true;
  if (message.topic == std::string(fleet::kMarks) + client_) {
    is_complete_ = true;
  } else if (message.topic.starts_with(fleet::kRollouts)) {
    const std::string id = message.topic.substr(fleet::kRollouts.size());
    if (message.payload.empty()) {
      rollouts_.erase(id);
    } else {
      rollouts_[id] = message.payload;
    }
  } else {
    fleet_tool::take(message, boards_);
    const fleet::DeviceTopic topic = fleet::device_topic(message.topic);
    if (listener_ == nullptr || topic.device.empty()) return;
    const Json json = fleet::json_in(message.payload);
    if (!json.is_object()) return;
    if (topic.end == fleet::kProgress) listener_->on_progress(std::string(topic.device), json);
    if (topic.end == fleet::kAnswer + client_)
      listener_->on_answer(std::string(topic.device), json);
  }
}

bool Observer::wait(const Deadline& until) {
  has_taken_ = false;
  step(until);
  return has_taken_ || !until.passed();
}

void Observer::ask(const std::string& board, const Json& request, double seconds) {
  if (!session_.is_connected()) return;
  (void)session_.publish({.topic = fleet::topic_of(board, fleet::kRequest),
                          .payload = fleet::payload_of(request),
                          .response_topic = fleet::topic_of(board, fleet::kAnswer + client_),
                          .seconds = static_cast<uint32_t>(seconds)});
  ++undelivered_;
}

void Observer::keep(const std::string& topic, const std::string& text) {
  if (!session_.is_connected()) return;
  (void)session_.publish({.topic = topic, .payload = text, .is_retained = true});
  ++undelivered_;
}

void Observer::flush() {
  const Deadline until = Deadline::after(kFlushMs);
  while (undelivered_ > 0 || !session_.is_connected()) {
    if (until.passed()) throw Failure(ETIMEDOUT, "the broker does not take what is published");
    step(until);
  }
}

}  // namespace fleet_tool
