#include "base/line_reader.h"

#include <errno.h>
#include <poll.h>

#include "base/pipe.h"

namespace tarvio {

// A peer that never stops sending must not hold the caller either, so the deadline counts before
// each read.
bool LineReader::refill() {
  if (is_over_) return false;
  ssize_t count = -1;
  if (deadline_.passed()) {
    errno = ETIMEDOUT;
  } else if (!deadline_.is_set() || wait_for(fd_, POLLIN, deadline_)) {
    count = read_some(fd_, room_);
  }
  is_over_ = count <= 0;
  if (count < 0) error_ = errno;
  if (!is_over_) ahead_ = {room_.data(), static_cast<size_t>(count)};
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
