#include "fleet/broker.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "base/line_cutter.h"
#include "base/owners.h"
#include "runtime/conf_file.h"

namespace fleet {

namespace {

constexpr int kTlsPort = 8883;
constexpr int kPlainPort = 1883;
constexpr long kMaxPort = 65535;

constexpr char kBrokerKey[] = "broker";
constexpr char kTls[] = "tls";
constexpr char kCaFile[] = "ca_file";
constexpr char kCertificate[] = "certificate";
constexpr char kKey[] = "key";
constexpr char kUser[] = "user";
constexpr char kPasswordFile[] = "password_file";
constexpr std::array kFileKeys = {kCaFile, kCertificate, kKey, kPasswordFile};

// HOST, HOST:PORT, [ADDRESS] or [ADDRESS]:PORT, for addresses with colons. The port is empty where
// there is none, and the host where the text is none of these.
struct Address {
  std::string_view host;
  std::string_view port;
};

Address address_in(std::string_view text) {
  std::string_view rest;
  Address address;
  if (text.starts_with('[')) {
    const size_t end = text.find(']');
    if (end == std::string_view::npos) return {};
    address.host = text.substr(1, end - 1);
    rest = text.substr(end + 1);
  } else {
    const size_t end = std::min(text.find(':'), text.size());
    address.host = text.substr(0, end);
    rest = text.substr(end);
  }
  if (rest.empty()) return address;
  if (!rest.starts_with(':') || rest.size() == 1) return {};
  address.port = rest.substr(1);
  return address;
}

bool is_file_key(const char* key) {
  for (const char* each : kFileKeys) {
    if (std::strcmp(key, each) == 0) return true;
  }
  return false;
}

const char* complaint_about_address(const char* value) {
  const Address address = address_in(value);
  const std::string port(address.port);
  const bool has_port = port.empty() || runtime::number_of(port.c_str(), kMaxPort) > 0;
  return address.host.empty() || !has_port ? "the value is not HOST or HOST:PORT" : nullptr;
}

}  // namespace

std::string Broker::name() const {
  const bool is_address = host.find(':') != std::string::npos;
  return (is_address ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

bool is_broker_key(const char* key) {
  return std::strcmp(key, kBrokerKey) == 0 || std::strcmp(key, kTls) == 0 ||
         std::strcmp(key, kUser) == 0 || is_file_key(key);
}

const char* complaint_about_broker(const char* key, const char* value) {
  if (std::strcmp(key, kBrokerKey) == 0) return complaint_about_address(value);
  if (std::strcmp(key, kTls) == 0) {
    return std::strcmp(value, "yes") == 0 || std::strcmp(value, "no") == 0
               ? nullptr
               : "unknown tls: write yes or no";
  }
  if (is_file_key(key) && value[0] != '/') return "the value is not a path that begins with /";
  return nullptr;
}

Broker broker_in(const tq_conf* pairs, const std::string& file) {
  const auto value_of = [&](const char* key) -> std::string { return tq_conf_read(pairs, key); };
  const std::string text = value_of(kBrokerKey);
  if (text.empty()) {
    throw std::runtime_error(file + ": has no broker: add the line 'broker: HOST'");
  }
  const Address address = address_in(text);
  Broker broker = {.host = std::string(address.host),
                   .has_tls = value_of(kTls) != "no",
                   .ca_file = value_of(kCaFile),
                   .certificate = value_of(kCertificate),
                   .key = value_of(kKey),
                   .user = value_of(kUser),
                   .password_file = value_of(kPasswordFile)};
  broker.port = broker.has_tls ? kTlsPort : kPlainPort;
  if (!address.port.empty()) broker.port = std::stoi(std::string(address.port));
  if (broker.certificate.empty() != broker.key.empty()) {
    throw std::runtime_error(file + ": has only one of certificate and key: add the other one");
  }
  if (broker.user.empty() != broker.password_file.empty()) {
    throw std::runtime_error(file + ": has only one of user and password_file: add the other one");
  }
  if (!broker.has_tls && !(broker.ca_file.empty() && broker.certificate.empty())) {
    throw std::runtime_error(file + ": has 'tls: no' and certificates: remove one of them");
  }
  return broker;
}

std::string password_in(const std::string& file) {
  const tarvio::File stream(fopen(file.c_str(), "re"));
  char* text = nullptr;
  size_t room = 0;
  const ssize_t size = stream == nullptr ? -1 : getline(&text, &room, stream.get());
  const std::unique_ptr<char, tarvio::Free> owner(text);
  if (size < 0) {
    const bool is_empty = stream != nullptr && feof(stream.get()) != 0;
    throw std::runtime_error("password_file '" + file + "' cannot be read: " +
                             (is_empty ? "it is empty" : std::strerror(errno)));
  }
  std::string_view bytes(text, static_cast<size_t>(size));
  std::string_view password = tarvio::take_line(bytes);
  if (password.ends_with('\r')) password.remove_suffix(1);
  return std::string(password);
}

}  // namespace fleet
