// Where the broker is and how to connect to it, from lines KEY: VALUE.
#ifndef TARVIO_FLEET_BROKER_H
#define TARVIO_FLEET_BROKER_H

#include <functional>
#include <span>
#include <string>

#include "tarvio/conf.h"

namespace fleet {

struct Broker {
  std::string host;
  int port = 0;
  bool has_tls = true;
  std::string ca_file;      // empty: the system's authorities
  std::string certificate;  // empty: none
  std::string key;
  std::string user;  // empty: none
  std::string password_file;

  // HOST:PORT, for messages.
  [[nodiscard]] std::string name() const;
};

// What is wrong with a pair that is of a broker, or null; also null for another pair.
const char* complaint_about_broker(const char* key, const char* value);

// Whether a key is of a broker.
bool is_broker_key(const char* key);

// What the keys, for messages, are: "broker, tls, ...".
inline constexpr char kBrokerKeys[] = "broker, tls, ca_file, certificate, key, user, password_file";

// Throws std::runtime_error, with the file, for pairs that do not go together.
Broker broker_in(const tq_conf* pairs, const std::string& file);

// The first line of a file. Throws std::runtime_error.
std::string password_in(const std::string& file);

}  // namespace fleet

#endif
