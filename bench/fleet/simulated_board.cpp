#include "fleet/simulated_board.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <utility>

#include "fleet/payload.h"
#include "fleet/topics.h"
#include "support/say.h"

namespace tarvio_bench {

namespace {

using client::Json;
using fleet::Event;
using fleet::Message;

// What an ordinary board has.
constexpr int kApps = 5;
constexpr int kPackages = 8;

// As the agent's.
constexpr uint32_t kKeptSeconds = 24 * 60 * 60;
constexpr uint32_t kMaxMessageBytes = uint32_t{1} << 20U;

fleet::SessionSettings session_of(const std::string& name, const fleet::Broker& broker) {
  return {.broker = broker,
          .client_id = name,
          .will = Message{.topic = fleet::topic_of(name, fleet::kOnline),
                          .payload = R"({"online":false})",
                          .is_retained = true},
          .kept_seconds = kKeptSeconds,
          .max_message_bytes = kMaxMessageBytes};
}

}  // namespace

int64_t now_ns() {
  return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string board_name(int number) { return text_of("board-%05d", number); }

SimulatedBoard::SimulatedBoard(int number, const fleet::Broker& broker, BoardRecord& record)
    : name_(board_name(number)), record_(record), session_(session_of(name_, broker)) {}

void SimulatedBoard::step(short happened) {
  const bool was_open = session_.fd() >= 0;
  session_.step(happened);
  if (!was_open && session_.fd() >= 0) record_.tried_ns = now_ns();
  while (const std::optional<Event> event = session_.next_event()) take(*event);
}

void SimulatedBoard::take(const Event& event) {
  switch (event.kind) {
    case Event::Kind::kConnected:
      take_connection();
      break;
    case Event::Kind::kLost:
      take_loss();
      break;
    case Event::Kind::kMessage:
      take_request(event.message);
      break;
    case Event::Kind::kDelivered:
      take_delivery(event.id);
      break;
  }
}

void SimulatedBoard::take_connection() {
  session_.subscribe(fleet::topic_of(name_, fleet::kRequest));
  is_waiting_ = false;
  keep(fleet::kApps, apps());
  keep(fleet::kOnline, fleet::payload_of({{"online", true}}));
  keep(fleet::kPackages, packages());
  keep(fleet::kSystem, system());
}

// What is kept, and progress, is not worth sending again: the facts come with the next connection.
void SimulatedBoard::take_loss() {
  if (record_.settled_ns.exchange(0) == 0) ++record_.failed_tries;
  is_waiting_ = false;
  std::erase_if(outbox_, [](const Message& each) { return each.is_retained || each.qos == 0; });
}

// Answers at once what the agent answers after the work.
void SimulatedBoard::take_request(const Message& message) {
  const Json request = Json::parse(message.payload, nullptr, false);
  if (!request.is_object() || message.response_topic.empty()) die(name_ + ": no request");
  const Json& id = request["id"];
  if (request["command"] == "install") {
    for (const char* const step : {"download", "work"}) {
      add({.topic = fleet::topic_of(name_, fleet::kProgress),
           .payload = fleet::payload_of({{"id", id}, {"step", step}}),
           .qos = 0});
    }
  }
  add({.topic = message.response_topic,
       .payload = fleet::payload_of({{"id", id},
                                     {"state", "done"},
                                     {"message", "Success"},
                                     {"status", 0},
                                     {"result", Json::object()},
                                     {"device", name_}}),
       .correlation = message.correlation});
}

void SimulatedBoard::take_delivery(int id) {
  if (!is_waiting_ || id != last_id_) return;
  is_waiting_ = false;
  outbox_.pop_front();
  if (outbox_.empty() && record_.settled_ns == 0) record_.settled_ns = now_ns();
  send_next();
}

void SimulatedBoard::change() {
  ++record_.changes;
  record_.changed_ns = now_ns();
  if (session_.is_connected()) keep(fleet::kApps, apps());
}

void SimulatedBoard::count_traffic() {
  tcp_info info = {};
  socklen_t size = sizeof info;
  if (getsockopt(fd(), IPPROTO_TCP, TCP_INFO, &info, &size) != 0 ||
      size < offsetof(tcp_info, tcpi_bytes_sent) + sizeof info.tcpi_bytes_sent) {
    die("the kernel does not count the bytes of a connection");
  }
  record_.sent_packets = info.tcpi_data_segs_out;
  record_.sent_bytes = info.tcpi_bytes_sent;
  record_.received_bytes = info.tcpi_bytes_received;
}

std::string SimulatedBoard::apps() const {
  Json list = Json::array();
  for (int number = 0; number < kApps; ++number) {
    list.push_back({{"name", text_of("app-%d", number)},
                    {"state", "normal"},
                    {"detail", nullptr},
                    {"run_state", "running"},
                    {"pid", 1200 + number},
                    {"since", 1'770'000'000},
                    {"starts", 1 + (number == 0 ? record_.changes.load() : 0)},
                    {"last_exit", nullptr},
                    {"memory", 4'567'040},
                    {"installed_version", "1.4.2"},
                    {"running_version", "1.4.2"},
                    {"upgraded", false}});
  }
  return fleet::payload_of(list);
}

std::string SimulatedBoard::packages() {
  Json list = Json::array();
  for (int number = 0; number < kPackages; ++number) {
    list.push_back({{"name", text_of("package-%d", number)},
                    {"version", "1.4.2"},
                    {"category", "application"},
                    {"category_code", 1},
                    {"subcategory", "user"},
                    {"subcategory_code", 2},
                    {"maintainer", "Someone <someone@example.com>"},
                    {"start_file", "/usr/bin/start"},
                    {"stop_file", nullptr}});
  }
  return fleet::payload_of(list);
}

std::string SimulatedBoard::system() const {
  return fleet::payload_of({{"agent", "1.1.0"},
                            {"tags", {"hall-3", name_.back() % 2 == 0 ? "even" : "odd"}},
                            {"booted", 1'770'000'000},
                            {"free_bytes", 53'477'376},
                            {"clock", 1'770'086'400}});
}

void SimulatedBoard::keep(const char* fact, const std::string& text) {
  add({.topic = fleet::topic_of(name_, fact), .payload = text, .is_retained = true});
}

void SimulatedBoard::add(Message message) {
  outbox_.push_back(std::move(message));
  send_next();
}

void SimulatedBoard::send_next() {
  if (!session_.is_connected() || is_waiting_ || outbox_.empty()) return;
  is_waiting_ = true;
  last_id_ = session_.publish(outbox_.front());
}

}  // namespace tarvio_bench
