// Has the manager learn which applications are installed.
#ifndef TARVIO_CLIENT_MANAGER_REFRESH_REQUEST_H
#define TARVIO_CLIENT_MANAGER_REFRESH_REQUEST_H

#include <cstdint>
#include <optional>

namespace client {

struct Refreshed {
  int32_t code = 0;  // the manager's result
  int added = 0;
  int removed = 0;
  int changed = 0;
};

// None for an older manager, which does not know the request. Throws a Failure when there is no
// manager, or no whole reply.
std::optional<Refreshed> ask_refresh(double timeout_seconds);

}  // namespace client

#endif
