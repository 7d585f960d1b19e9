#include "base/pipe.h"

namespace tarvio {

ssize_t read_some(int fd, std::span<char> room) noexcept {
  return retried([=] { return read(fd, room.data(), room.size()); });
}

bool write_all(int fd, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t written = retried([=] { return write(fd, bytes.data(), bytes.size()); });
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

}  // namespace tarvio
