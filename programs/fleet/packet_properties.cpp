#include "fleet/packet_properties.h"

#include <mqtt_protocol.h>

#include <memory>
#include <optional>

#include "base/owners.h"

namespace fleet {

namespace {

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

}  // namespace

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

}  // namespace fleet
