#include "base/line_reader.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>

#include "base/pipe.h"

namespace tarvio {

namespace {

// Most requests are there before they are read, so a socket is waited for only when it has no data.
// Any other descriptor is waited for in any case, as reading it could block. A peer that never
// stops sending must not hold the caller either, so the deadline counts before each read.
ssize_t read_before(const Deadline& deadline, int fd, std::span<char> room) {
  while (!deadline.passed()) {
    const ssize_t count = recv(fd, room.data(), room.size(), MSG_DONTWAIT);
    if (count >= 0) return count;
    if (errno == ENOTSOCK) return wait_for(fd, POLLIN, deadline) ? read_some(fd, room) : -1;
    if (errno != EINTR && (errno != EAGAIN || !wait_for(fd, POLLIN, deadline))) return -1;
  }
  errno = ETIMEDOUT;
  return -1;
}

}  // namespace

bool LineReader::refill() {
  if (is_over_) return false;
  const int errno_before = errno;
  const ssize_t count =
      deadline_.is_set() ? read_before(deadline_, fd_, room_) : read_some(fd_, room_);
  is_over_ = count <= 0;
  if (count < 0) {
    error_ = errno;
    return false;
  }
  errno = errno_before;
  ahead_ = {room_.data(), static_cast<size_t>(count)};
  return !is_over_;
}

bool LineReader::next() {
  while (!ahead_.empty() || refill()) {
    const LineCutter::Result result = lines_.feed(ahead_);
    if (result == LineCutter::Result::kLine) return true;
    if (result == LineCutter::Result::kOutOfMemory) {
      ahead_ = {};
      is_over_ = true;
      error_ = ENOMEM;
      break;
    }
  }
  if (error_ != ENOMEM && lines_.finish()) return true;
  if (error_ != 0) errno = error_;
  return false;
}

PieceReader::PieceReader(int fd)
    : pieces_(LineEnd::kLineFeed, room_), reader_(fd, read_ahead_, pieces_) {}

}  // namespace tarvio
