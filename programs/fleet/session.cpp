#include "fleet/session.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <deque>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "base/owners.h"
#include "fleet/packet_properties.h"

namespace fleet {

namespace {

using tarvio::Deadline;

constexpr int kUpkeepMs = 5000;  // the library sends its keep-alive only when it is called
constexpr int kFirstDelayMs = 30'000;
constexpr int kLateDelayMs = 10'000;
constexpr int kLongestDelayMs = 60'000;
constexpr char kAuthorities[] = "/etc/ssl/certs";

// The other end may have gone since the last step.
bool is_of_connection(int result) {
  return result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_CONN_LOST || result == MOSQ_ERR_ERRNO ||
         result == MOSQ_ERR_TLS;
}

std::string cause_of(int result, int error) {
  if (result == MOSQ_ERR_ERRNO) return std::strerror(error);
  // The library has no words for it.
  return result == MOSQ_ERR_KEEPALIVE ? "the broker does not answer" : mosquitto_strerror(result);
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

// The library's part, with what its callbacks leave.
struct Session::Client {
  struct Free {
    void operator()(mosquitto* client) const {
      mosquitto_destroy(client);
      mosquitto_lib_cleanup();
    }
  };

  std::unique_ptr<mosquitto, Free> library;
  bool is_connected = false;
  std::string detail;  // what the library said last of an error
  std::deque<Event> happened;
};

// What the library calls. Nothing may be thrown through it.
struct Session::Callbacks {
  static Client& client_of(void* object) noexcept { return *static_cast<Client*>(object); }

  static void connected(mosquitto*, void* object, int reason, int,
                        const mosquitto_property*) noexcept {
    Client& client = client_of(object);
    if (reason != MQTT_RC_SUCCESS) {
      client.detail = std::string("the broker refuses it: ") + mosquitto_reason_string(reason);
      return;
    }
    client.is_connected = true;
    client.detail.clear();
    client.happened.push_back({.kind = Event::Kind::kConnected});
  }
  static void disconnected(mosquitto*, void* object, int reason,
                           const mosquitto_property*) noexcept {
    // A packet of the broker gives a reason of the protocol, anything else an error of the library.
    Client& client = client_of(object);
    if (reason >= MQTT_RC_UNSPECIFIED && client.detail.empty()) {
      client.detail = std::string("the broker ends it: ") + mosquitto_reason_string(reason);
    }
  }
  static void received(mosquitto*, void* object, const mosquitto_message* message,
                       const mosquitto_property* properties) noexcept {
    client_of(object).happened.push_back(
        {.kind = Event::Kind::kMessage, .message = message_of(*message, properties)});
  }
  static void delivered(mosquitto*, void* object, int id, int reason,
                        const mosquitto_property*) noexcept {
    client_of(object).happened.push_back(
        {.kind = Event::Kind::kDelivered, .id = id, .reason = reason});
  }
  static void logged(mosquitto* library, void* object, int level, const char* text) noexcept {
    std::string& detail = client_of(object).detail;
    if (level != MOSQ_LOG_ERR || !detail.empty()) return;
    detail = certificate_trouble(library);
    if (detail.empty()) detail = text;
  }
};

// A connect in a thread of its own: the library does not return before every address of the host
// has answered or the system has given them up, after minutes.
struct Session::Attempt {
  Attempt(std::shared_ptr<Client> of, const SessionSettings& settings)
      : client(std::move(of)),
        host(settings.broker.host),
        port(settings.broker.port),
        keep_alive_seconds(settings.keep_alive_seconds) {
    if (!ended.valid()) throw std::runtime_error(std::strerror(errno));
    if (settings.kept_seconds != 0) {
      properties.add_number(MQTT_PROP_SESSION_EXPIRY_INTERVAL, settings.kept_seconds);
    }
    if (settings.max_message_bytes != 0) {
      properties.add_number(MQTT_PROP_MAXIMUM_PACKET_SIZE, settings.max_message_bytes);
    }
  }

  void run() {
    result = mosquitto_connect_bind_v5(client->library.get(), host.c_str(), port,
                                       keep_alive_seconds, nullptr, properties.list());
    error = errno;
    // The process may end before this thread does, and what TLS keeps for it would be left.
    OPENSSL_thread_stop();
    (void)eventfd_write(ended.get(), 1);
  }

  const std::shared_ptr<Client> client;
  const std::string host;
  const int port;
  const int keep_alive_seconds;
  const tarvio::Fd ended{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  Properties properties;
  int result = MOSQ_ERR_SUCCESS;
  int error = 0;
};

Session::Session(const SessionSettings& settings)
    : settings_(settings), delays_(std::random_device()()) {
  mosquitto_lib_init();
  client_ = std::make_shared<Client>();
  client_->library.reset(
      mosquitto_new(settings_.client_id.c_str(), settings_.kept_seconds == 0, client_.get()));
  if (client_->library == nullptr) throw std::runtime_error(std::strerror(errno));
  set_up();
  due_ = Deadline::after(0);
}

Session::~Session() = default;

void Session::check(int result, const char* what) const {
  if (result == MOSQ_ERR_SUCCESS) return;
  const std::string cause = cause_of(result, errno);
  throw std::runtime_error(std::string(what) + ": " +
                           (client_->detail.empty() ? cause : client_->detail));
}

void Session::set_up() {
  mosquitto* const client = client_->library.get();
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

bool Session::is_connected() const { return attempt_ == nullptr && client_->is_connected; }

int Session::fd() const {
  if (attempt_ != nullptr) return attempt_->ended.get();
  return is_open_ ? mosquitto_socket(client_->library.get()) : -1;
}

short Session::events() const {
  const bool has_output = attempt_ == nullptr && mosquitto_want_write(client_->library.get());
  return static_cast<short>(has_output ? POLLIN | POLLOUT : POLLIN);
}

void Session::connect() {
  client_->detail.clear();
  attempt_ = std::make_shared<Attempt>(client_, settings_);
  due_ = Deadline::never();
  // A thread begins with the signals that are blocked here: it must take none of the program's.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  (void)pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    std::thread([attempt = attempt_] { attempt->run(); }).detach();
  } catch (const std::system_error&) {
    attempt_->run();  // there is no thread for it, and waiting is better than no connection
  }
  (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Session::end_attempt() {
  eventfd_t count = 0;
  if (eventfd_read(attempt_->ended.get(), &count) != 0) return;
  const std::shared_ptr<Attempt> attempt = std::exchange(attempt_, nullptr);
  is_open_ = attempt->result == MOSQ_ERR_SUCCESS;
  if (is_open_) {
    due_ = Deadline::after(kUpkeepMs);
  } else {
    lose(cause_of(attempt->result, attempt->error));
  }
}

void Session::lose(const std::string& cause) {
  const bool was_connected = std::exchange(client_->is_connected, false);
  is_open_ = false;
  std::string why = client_->detail.empty() ? cause : client_->detail;
  client_->happened.push_back(
      {.kind = Event::Kind::kLost,
       .cause = (was_connected ? "connection to the broker " : "cannot connect to the broker ") +
                settings_.broker.name() + (was_connected ? " is lost: " : ": ") + why});
  if (settings_.retry_ms != 0) {
    due_ = Deadline::after(settings_.retry_ms);
  } else {
    due_ = Deadline::after(was_connected ? delays_.first_ms() : delays_.next_ms());
  }
}

void Session::step(short happened) {
  mosquitto* const client = client_->library.get();
  if (attempt_ != nullptr) end_attempt();
  if (!is_open_) {
    if (attempt_ == nullptr && due_.passed()) connect();
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
  if (result != MOSQ_ERR_SUCCESS) lose(cause_of(result, errno));
}

std::optional<Event> Session::next_event() {
  if (client_->happened.empty()) return std::nullopt;
  Event event = std::move(client_->happened.front());
  client_->happened.pop_front();
  return event;
}

void Session::take_result(int result, const char* what) {
  if (!is_of_connection(result)) {
    check(result, what);
  } else if (client_->is_connected) {
    lose(cause_of(result, errno));
  }
}

int Session::publish(const Message& message) {
  Properties properties;
  add_properties_of(message, properties);
  int id = 0;
  const int result = mosquitto_publish_v5(
      client_->library.get(), &id, message.topic.c_str(), static_cast<int>(message.payload.size()),
      message.payload.data(), message.qos, message.is_retained, properties.list());
  if (result == MOSQ_ERR_OVERSIZE_PACKET) {
    throw TooLong("the message is longer than the broker takes");
  }
  take_result(result, "cannot publish");
  return id;
}

void Session::subscribe(const std::string& filter, int qos) {
  take_result(mosquitto_subscribe(client_->library.get(), nullptr, filter.c_str(), qos),
              "cannot subscribe");
}

void Session::disconnect() {
  if (is_connected())
    (void)mosquitto_disconnect_v5(client_->library.get(), MQTT_RC_NORMAL_DISCONNECTION, nullptr);
  attempt_.reset();
  client_->is_connected = false;
  is_open_ = false;
  due_ = Deadline::never();
}

}  // namespace fleet
