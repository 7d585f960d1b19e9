#include <errno.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <span>

#include "base/line_cutter.h"
#include "base/pipe.h"
#include "tarvio/text.h"

namespace {

constexpr size_t kLookAhead = 256;

// Reads the next bytes of the line, never one after its end: up to all that a look ahead shows on a
// socket, one byte elsewhere. Returns their number, 0 or less at the end of the data and on an
// error.
ssize_t read_part(int fd, std::span<char> room, bool& is_socket) {
  if (!is_socket) return tarvio::read_some(fd, room.first(1));
  const int errno_before = errno;
  std::array<char, kLookAhead> ahead;
  const size_t most = std::min(room.size(), ahead.size());
  const ssize_t seen = tarvio::retried([&] { return recv(fd, ahead.data(), most, MSG_PEEK); });
  if (seen < 0 && errno == ENOTSOCK) {
    is_socket = false;
    errno = errno_before;
    return tarvio::read_some(fd, room.first(1));
  }
  if (seen <= 0) return seen;
  const std::string_view bytes(ahead.data(), static_cast<size_t>(seen));
  const size_t line = tarvio::line_length(bytes, tarvio::LineEnd::kEither);
  const size_t wanted = line != 0 ? line : bytes.size();
  return tarvio::retried([&] { return recv(fd, room.data(), wanted, 0); });
}

}  // namespace

// Not with a line reader: the caller may hand the descriptor on after a line, so that nothing may
// be read ahead.
char* tq_fdgets(char* buffer, uint32_t size, int fd) {
  if (buffer == nullptr || size == 0) return nullptr;
  const size_t room = size - 1;
  buffer[room] = '\0';
  if (room == 0) return nullptr;

  bool is_socket = true;
  size_t stored = 0;
  while (stored < room) {
    const ssize_t count = read_part(fd, std::span(buffer + stored, room - stored), is_socket);
    // No zero follows a last line without a line end: callers clear the buffer (oddity 19).
    if (count < 1) return stored == 0 ? nullptr : buffer;
    stored += static_cast<size_t>(count);
    const char last = buffer[stored - 1];
    if (last == '\n' || last == '\r') {  // either alone ends a line (oddity 18)
      buffer[stored] = '\0';
      break;
    }
  }
  return buffer;
}
