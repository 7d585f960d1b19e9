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
constexpr int kRetryMs = 1000;  // one operator's tool, and no fleet that comes back at once
constexpr char kFacts[][16] = {"+/online", "+/system", "+/apps", "+/packages", "+/progress"};

std::string client_name(const std::string& operator_name) {
  std::random_device random;
  return operator_name.substr(0, 48) + "-" + std::to_string(random());
}

fleet::SessionSettings session_of(const fleet::Broker& broker, const std::string& client) {
  return {.broker = broker, .client_id = client, .retry_ms = kRetryMs};
}

}  // namespace

Observer::Observer(const Settings& settings, double seconds, Needs needs) try
    : client_(client_name(settings.operator_name)),
      needs_(needs),
      broker_(settings.broker),
      session_(session_of(broker_, client_)) {
  const Deadline until = Deadline::after_seconds(seconds);
  while (!is_complete_) {
    step(until);
    if (!cause_.empty() && !session_.is_connected()) throw Failure(ENOTCONN, cause_);
    if (!until.passed()) continue;
    if (!session_.is_connected()) {
      throw Failure(ETIMEDOUT,
                    "the broker " + broker_.name() +
                        " does not answer: see whether it runs and can be reached from here",
                    client::kTimeout);
    }
    throw Failure(ETIMEDOUT,
                  "the broker " + broker_.name() +
                      " does not send what it keeps of the boards; may this user or certificate "
                      "read " +
                      std::string(fleet::kDevices) + "# and " + std::string(fleet::kMarks) + "#?",
                  client::kTimeout);
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
        is_complete_ = false;
        if (!lost_until_.is_set()) lost_until_ = Deadline::after(kMaxLossMs);
        break;
      case Event::Kind::kMessage:
        take(event->message);
        break;
      case Event::Kind::kDelivered:
        on_delivered(*event);
        break;
    }
  }
  if (lost_until_.passed()) throw Failure(ENOTCONN, cause_);
}

// The broker sends what it keeps before it sends the mark, which comes last. Of what is kept the
// newest is enough, and without acknowledgement the broker drops nothing of a large fleet.
void Observer::on_connected() {
  lost_until_ = Deadline::never();
  for (const char* const fact : kFacts) session_.subscribe(std::string(fleet::kDevices) + fact, 0);
  if (needs_ == Needs::kBoardsAndRollouts) {
    session_.subscribe(std::string(fleet::kRollouts) + "+", 0);
  }
  session_.subscribe(std::string(fleet::kDevices) + "+/" + fleet::kAnswer + client_);
  session_.subscribe(std::string(fleet::kMarks) + client_, 0);
  send_mark();
}

void Observer::send_mark() {
  is_complete_ = false;
  (void)session_.publish({.topic = std::string(fleet::kMarks) + client_, .payload = "", .qos = 0});
}

// A message that was under way when the connection was lost is delivered after the next one.
void Observer::on_delivered(const fleet::Event& event) {
  const auto found = undelivered_.find(event.id);
  if (found == undelivered_.end()) return;
  const std::string topic = found->second;
  undelivered_.erase(found);
  if (!event.is_refused()) return;
  throw Failure(EACCES, "the broker " + broker_.name() +
                            " does not let this user or certificate publish to '" + topic +
                            "': see the broker's access file");
}

void Observer::take_rollout(const std::string& id, const std::string& text) {
  if (text.empty()) {
    rollouts_.erase(id);
    return;
  }
  rollouts_[id] = text;
  if (id != claimed_id_) return;
  const Json record = fleet::json_in(text);
  const std::string run = text_in(record, "run");
  if (run == claimed_run_) {
    is_claimed_ = true;
  } else if (!is_claimed_) {
    earlier_runs_.insert(run);
  } else if (!earlier_runs_.contains(run)) {
    unsent_.clear();
    throw Failure(EBUSY, "rollout '" + id + "' ends here: '" + text_in(record, "operator") +
                             "' carries it out now");
  }
}

void Observer::claim(const std::string& id, const std::string& run) {
  claimed_id_ = id;
  claimed_run_ = run;
  if (const auto kept = rollouts_.find(id); kept != rollouts_.end()) {
    earlier_runs_.insert(text_in(fleet::json_in(kept->second), "run"));
  }
}

void Observer::take(const fleet::Message& message) {
  has_taken_ = true;
  if (message.topic == std::string(fleet::kMarks) + client_) {
    is_complete_ = true;
    send_unsent();
  } else if (message.topic.starts_with(fleet::kRollouts)) {
    take_rollout(message.topic.substr(fleet::kRollouts.size()), message.payload);
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

void Observer::catch_up() {
  if (session_.is_connected()) send_mark();
  is_complete_ = false;
  while (!is_complete_) step(Deadline::after(kRetryMs));
}

void Observer::publish(const fleet::Message& message) {
  undelivered_[session_.publish(message)] = message.topic;
}

void Observer::ask(const std::string& board, const Json& request, double seconds) {
  if (!session_.is_connected()) return;
  publish({.topic = fleet::topic_of(board, fleet::kRequest),
           .payload = fleet::payload_of(request),
           .response_topic = fleet::topic_of(board, fleet::kAnswer + client_),
           .seconds = static_cast<uint32_t>(seconds)});
}

void Observer::keep(const std::string& topic, const std::string& text) {
  unsent_[topic] = text;
  if (is_complete_) send_unsent();
}

// What the session has taken it publishes again after a loss, in the order in which it took it.
void Observer::send_unsent() {
  while (!unsent_.empty() && session_.is_connected()) {
    const auto first = unsent_.begin();
    publish({.topic = first->first, .payload = first->second, .is_retained = true});
    unsent_.erase(first);
  }
}

void Observer::flush(int milliseconds) {
  const Deadline until = Deadline::after(milliseconds);
  while (!undelivered_.empty() || !unsent_.empty()) {
    if (until.passed()) {
      throw Failure(ETIMEDOUT, "the broker " + broker_.name() + " does not take what is published");
    }
    step(until);
  }
}

}  // namespace fleet_tool
