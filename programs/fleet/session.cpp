#include "fleet/session.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <openssl/ssl.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "base/owners.h"

namespace fleet {

namespace {

using tarvio::Deadline;

constexpr int kKeepAliveSeconds = 60;
constexpr int kUpkeepMs = 5000;  // the library sends its keep-alive only when it is called
constexpr int kFirstDelayMs = 20'000;
constexpr int kLateDelayMs = 10'000;
constexpr int kLongestDelayMs = 60'000;
constexpr char kAuthorities[] = "/etc/ssl/certs";

// Properties of a packet.
class Properties {
 public:
  Properties() = default;
  Properties(const Properties&) = delete;
  Properties& operator=(const Properties&) = delete;
  ~Properties() { mosquitto_property_free_all(&list_); }

  void add_number(int identifier, uint32_t number) {
    check(mosquitto_property_add_int32(&list_, identifier, number));
  }
  void add_text(int identifier, const std::string& text) {
    check(mosquitto_property_add_string(&list_, identifier, text.c_str()));
  }
  void add_bytes(int identifier, const std::string& bytes) {
    check(mosquitto_property_add_binary(&list_, identifier, bytes.data(),
                                        static_cast<uint16_t>(bytes.size())));
  }
  [[nodiscard]] const mosquitto_property* list() const { return list_; }

 private:
  static void check(int result) {
    if (result != MOSQ_ERR_SUCCESS) throw std::runtime_error(mosquitto_strerror(result));
  }

  mosquitto_property* list_ = nullptr;
};

std::string text_in(const mosquitto_property* properties, int identifier) {
  char* text = nullptr;
  if (mosquitto_property_read_string(properties, identifier, &text, false) == nullptr) return "";
  const std::unique_ptr<char, tarvio::Free> owner(text);
  return text;
}

std::string bytes_in(const mosquitto_property* properties, int identifier) {
  void* bytes = nullptr;
  uint16_t size = 0;
  if (mosquitto_property_read_binary(properties, identifier, &bytes, &size, false) == nullptr) {
    return "";
  }
  const std::unique_ptr<void, tarvio::Free> owner(bytes);
  return {static_cast<const char*>(bytes), size};
}

std::optional<uint32_t> number_in(const mosquitto_property* properties, int identifier) {
  uint32_t number = 0;
  if (mosquitto_property_read_int32(properties, identifier, &number, false) == nullptr) {
    return std::nullopt;
  }
  return number;
}

Message message_of(const mosquitto_message& message, const mosquitto_property* properties) {
  return {.topic = message.topic,
          .payload = {static_cast<const char*>(message.payload),
                      static_cast<size_t>(message.payloadlen)},
          .is_retained = message.retain,
          .qos = message.qos,
          .response_topic = text_in(properties, MQTT_PROP_RESPONSE_TOPIC),
          .correlation = bytes_in(properties, MQTT_PROP_CORRELATION_DATA),
          .seconds = number_in(properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL)};
}

void add_properties_of(const Message& message, Properties& properties) {
  if (!message.response_topic.empty()) {
    properties.add_text(MQTT_PROP_RESPONSE_TOPIC, message.response_topic);
  }
  if (!message.correlation.empty()) {
    properties.add_bytes(MQTT_PROP_CORRELATION_DATA, message.correlation);
  }
  if (message.seconds) {
    properties.add_number(MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, *message.seconds);
  }
}

// The other end may have gone since the last step.
bool is_of_connection(int result) {
  return result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_CONN_LOST || result == MOSQ_ERR_ERRNO ||
         result == MOSQ_ERR_TLS;
}

std::string time_words(std::time_t time) {
  tm parts = {};
  std::array<char, 32> text = {};
  if (gmtime_r(&time, &parts) == nullptr) return "?";
  (void)std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
  return text.data();
}

// Why the broker's certificate is not accepted; empty if that is not the trouble.
std::string certificate_trouble(mosquitto* client) {
  const auto* const connection = static_cast<const SSL*>(mosquitto_ssl_get(client));
  const long result = connection == nullptr ? X509_V_OK : SSL_get_verify_result(connection);
  if (result == X509_V_OK) return "";
  std::string words = "the certificate of the broker is not accepted: ";
  words += X509_verify_cert_error_string(result);
  if (result == X509_V_ERR_CERT_NOT_YET_VALID || result == X509_V_ERR_CERT_HAS_EXPIRED) {
    words += "; the clock of this device says " + time_words(std::time(nullptr)) +
             " UTC: set it if that is wrong";
  }
  return words;
}

}  // namespace

int Delays::spread(int from_ms, int to_ms) {
  return std::uniform_int_distribution<int>(from_ms, to_ms)(random_);
}

int Delays::first_ms() {
  longest_ms_ = kLateDelayMs;
  return spread(0, kFirstDelayMs);
}

int Delays::next_ms() {
  const int longest = longest_ms_;
  longest_ms_ = std::min(longest * 2, kLongestDelayMs);
  return spread(longest / 2, longest);
}

// What the library calls. Nothing may be thrown through it.
struct Session::Callbacks {
  static Session& session_of(void* object) noexcept { return *static_cast<Session*>(object); }

  static void connected(mosquitto*, void* object, int reason, int,
                        const mosquitto_property*) noexcept {
    Session& session = session_of(object);
    if (reason != MQTT_RC_SUCCESS) {
      session.detail_ = std::string("the broker refuses it: ") + mosquitto_reason_string(reason);
      return;
    }
    session.is_connected_ = true;
    session.detail_.clear();
    session.happened_.push_back({.kind = Event::Kind::kConnected});
  }
  static void disconnected(mosquitto*, void* object, int reason,
                           const mosquitto_property*) noexcept {
    // A packet of the broker gives a reason of the protocol, anything else an error of the library.
    Session& session = session_of(object);
    if (reason >= MQTT_RC_UNSPECIFIED && session.detail_.empty()) {
      session.detail_ = std::string("the broker ends it: ") + mosquitto_reason_string(reason);
    }
  }
  static void received(mosquitto*, void* object, const mosquitto_message* message,
                       const mosquitto_property* properties) noexcept {
    session_of(object).happened_.push_back(
        {.kind = Event::Kind::kMessage, .message = message_of(*message, properties)});
  }
  static void delivered(mosquitto*, void* object, int id, int, const mosquitto_property*) noexcept {
    session_of(object).happened_.push_back({.kind = Event::Kind::kDelivered, .id = id});
  }
  static void logged(mosquitto* client, void* object, int level, const char* text) noexcept {
    std::string& detail = session_of(object).detail_;
    if (level != MOSQ_LOG_ERR || !detail.empty()) return;
    detail = certificate_trouble(client);
    if (detail.empty()) detail = text;
  }
};

void Session::Free::operator()(mosquitto* client) const {
  mosquitto_destroy(client);
  mosquitto_lib_cleanup();
}

Session::Session(const SessionSettings& settings)
    : settings_(settings), delays_(std::random_device()()) {
  mosquitto_lib_init();
  client_.reset(mosquitto_new(settings_.client_id.c_str(), settings_.kept_seconds == 0, this));
  if (client_ == nullptr) throw std::runtime_error(std::strerror(errno));
  set_up();
  due_ = Deadline::after(0);
}

Session::~Session() = default;

void Session::check(int result, const char* what) const {
  if (result == MOSQ_ERR_SUCCESS) return;
  const char* const cause =
      result == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(result);
  throw std::runtime_error(std::string(what) + ": " + (detail_.empty() ? cause : detail_));
}

void Session::set_up() {
  mosquitto* const client = client_.get();
  const Broker& broker = settings_.broker;
  mosquitto_connect_v5_callback_set(client, Callbacks::connected);
  mosquitto_disconnect_v5_callback_set(client, Callbacks::disconnected);
  mosquitto_message_v5_callback_set(client, Callbacks::received);
  mosquitto_publish_v5_callback_set(client, Callbacks::delivered);
  mosquitto_log_callback_set(client, Callbacks::logged);
  check(mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5), "MQTT 5");
  if (broker.has_tls) {
    const bool has_ca = !broker.ca_file.empty();
    const bool has_key = !broker.key.empty();
    check(mosquitto_tls_set(client, has_ca ? broker.ca_file.c_str() : nullptr,
                            has_ca ? nullptr : kAuthorities,
                            has_key ? broker.certificate.c_str() : nullptr,
                            has_key ? broker.key.c_str() : nullptr, nullptr),
          "ca_file, certificate or key cannot be used");
  }
  if (!broker.user.empty()) {
    const std::string password = password_in(broker.password_file);
    check(mosquitto_username_pw_set(client, broker.user.c_str(), password.c_str()), "user");
  }
  if (settings_.will) {
    const Message& will = *settings_.will;
    check(mosquitto_will_set_v5(client, will.topic.c_str(), static_cast<int>(will.payload.size()),
                                will.payload.data(), will.qos, will.is_retained, nullptr),
          "last will");
  }
}

int Session::fd() const { return is_open_ ? mosquitto_socket(client_.get()) : -1; }

short Session::events() const {
  return static_cast<short>(mosquitto_want_write(client_.get()) ? POLLIN | POLLOUT : POLLIN);
}

void Session::connect() {
  Properties properties;
  if (settings_.kept_seconds != 0) {
    properties.add_number(MQTT_PROP_SESSION_EXPIRY_INTERVAL, settings_.kept_seconds);
  }
  if (settings_.max_message_bytes != 0) {
    properties.add_number(MQTT_PROP_MAXIMUM_PACKET_SIZE, settings_.max_message_bytes);
  }
  detail_.clear();
  const int result =
      mosquitto_connect_bind_v5(client_.get(), settings_.broker.host.c_str(), settings_.broker.port,
                                kKeepAliveSeconds, nullptr, properties.list());
  is_open_ = result == MOSQ_ERR_SUCCESS;
  if (is_open_) {
    due_ = Deadline::after(kUpkeepMs);
  } else {
    lose(result == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(result));
  }
}

void Session::lose(const std::string& cause) {
  const bool was_connected = std::exchange(is_connected_, false);
  is_open_ = false;
  std::string why = detail_.empty() ? cause : detail_;
  happened_.push_back(
      {.kind = Event::Kind::kLost,
       .cause = (was_connected ? "connection to the broker " : "cannot connect to the broker ") +
                settings_.broker.name() + (was_connected ? " is lost: " : ": ") + why});
  due_ = settings_.comes_back
             ? Deadline::after(was_connected ? delays_.first_ms() : delays_.next_ms())
             : Deadline::never();
}

void Session::step(short happened) {
  mosquitto* const client = client_.get();
  if (!is_open_) {
    if (due_.passed()) connect();
    return;
  }
  int result = MOSQ_ERR_SUCCESS;
  if ((happened & ~POLLOUT) != 0) result = mosquitto_loop_read(client, 1);
  if (result == MOSQ_ERR_SUCCESS && mosquitto_want_write(client)) {
    result = mosquitto_loop_write(client, 1);
  }
  if (result == MOSQ_ERR_SUCCESS && due_.passed()) {
    result = mosquitto_loop_misc(client);
    due_ = Deadline::after(kUpkeepMs);
  }
  if (result == MOSQ_ERR_SUCCESS) return;
  const int error = errno;
  lose(result == MOSQ_ERR_ERRNO ? std::strerror(error) : mosquitto_strerror(result));
}

std::optional<Event> Session::next_event() {
  if (happened_.empty()) return std::nullopt;
  Event event = std::move(happened_.front());
  happened_.pop_front();
  return event;
}

void Session::take_result(int result, const char* what) {
  if (!is_of_connection(result)) {
    check(result, what);
  } else if (is_connected_) {
    lose(result == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(result));
  }
}

int Session::publish(const Message& message) {
  Properties properties;
  add_properties_of(message, properties);
  int id = 0;
  const int result = mosquitto_publish_v5(
      client_.get(), &id, message.topic.c_str(), static_cast<int>(message.payload.size()),
      message.payload.data(), message.qos, message.is_retained, properties.list());
  if (result == MOSQ_ERR_OVERSIZE_PACKET) {
    throw TooLong("the message is longer than the broker takes");
  }
  take_result(result, "cannot publish");
  return id;
}

void Session::subscribe(const std::string& filter, int qos) {
  take_result(mosquitto_subscribe(client_.get(), nullptr, filter.c_str(), qos), "cannot subscribe");
}

void Session::disconnect() {
  if (is_connected_)
    (void)mosquitto_disconnect_v5(client_.get(), MQTT_RC_NORMAL_DISCONNECTION, nullptr);
  is_connected_ = false;
  is_open_ = false;
  due_ = Deadline::never();
}

}  // namespace fleet
