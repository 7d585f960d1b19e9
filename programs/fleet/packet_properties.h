// What MQTT 5 sends beside a message, in the form of the library.
#ifndef TARVIO_FLEET_PACKET_PROPERTIES_H
#define TARVIO_FLEET_PACKET_PROPERTIES_H

#include <mosquitto.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "fleet/session.h"

namespace fleet {

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

Message message_of(const mosquitto_message& message, const mosquitto_property* properties);
void add_properties_of(const Message& message, Properties& properties);

}  // namespace fleet

#endif
