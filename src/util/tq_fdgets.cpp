#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <span>

#include "base/line_cutter.h"
#include "tarvio/text.h"

namespace {

constexpr size_t kLookAhead = 256;

// Leaves errno alone unless the call fails.
ssize_t retry(auto call) {
  const int errno_before = errno;
  ssize_t count = -1;
  do {
    count = call();
  } while (count < 0 && errno == EINTR);
  if (count >= 0) errno = errno_before;
  return count;
}

// Takes the next bytes of the line, never one behind its end: up to all that a look ahead shows on
// a socket, one byte elsewhere. Returns their number, 0 or less at the end of data and on an error.
ssize_t take(int fd, std::span<char> room, bool& is_socket) {
  if (is_socket) {
    const int errno_before = errno;
    std::array<char, kLookAhead> ahead;
    const size_t most = std::min(room.size(), ahead.size());
    const ssize_t seen = retry([&] { return recv(fd, ahead.data(), most, MSG_PEEK); });
    if (seen >= 0 || errno != ENOTSOCK) {
      if (seen <= 0) return seen;
      const std::string_view bytes(ahead.data(), static_cast<size_t>(seen));
      const size_t line = tarvio::line_length(bytes, tarvio::LineEnd::kEither);
      const size_t wanted = line != 0 ? line : bytes.size();
      return retry([&] { return recv(fd, room.data(), wanted, 0); });
    }
    is_socket = false;
    errno = errno_before;
  }
  return retry([&] { return read(fd, room.data(), 1); });
}

}  // namespace

char* tq_fdgets(char* buffer, uint32_t size, int fd) {
  if (buffer == nullptr || size == 0) return nullptr;
  const size_t room = size - 1;
  buffer[room] = '\0';
  if (room == 0) return nullptr;

  bool is_socket = true;
  size_t stored = 0;
  while (stored < room) {
    const ssize_t count = take(fd, std::span(buffer + stored, room - stored), is_socket);
    // No zero is stored behind a last line without its line end: callers clear the buffer.
    if (count < 1) return stored == 0 ? nullptr : buffer;
    stored += static_cast<size_t>(count);
    const char last = buffer[stored - 1];
    if (last == '\n' || last == '\r') {
      buffer[stored] = '\0';
      break;
    }
  }
  return buffer;
}
