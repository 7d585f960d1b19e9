// Texts of messages.
#ifndef TARVIO_FLEET_PAYLOAD_H
#define TARVIO_FLEET_PAYLOAD_H

#include <string>

#include "terminal/json.h"

namespace fleet {

// On one line without its end, ASCII only, and valid whatever the bytes are.
inline std::string payload_of(const client::Json& json) {
  std::string line = client::line_of(json);
  line.pop_back();
  return line;
}

}  // namespace fleet

#endif
