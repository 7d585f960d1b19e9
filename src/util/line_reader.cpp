#include "util/line_reader.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

namespace tarvio {

size_t line_length(std::span<const char> bytes, LineEnd line_end) {
  if (line_end == LineEnd::kLineFeed) {
    const void* found = memchr(bytes.data(), '\n', bytes.size());
    if (found == nullptr) return 0;
    return static_cast<size_t>(static_cast<const char*>(found) - bytes.data()) + 1;
  }
  const auto at = std::find_if(bytes.begin(), bytes.end(),
                               [](char byte) { return byte == '\n' || byte == '\r'; });
  return at == bytes.end() ? 0 : static_cast<size_t>(at - bytes.begin()) + 1;
}

bool LineReader::refill() {
  const int errno_before = errno;
  ssize_t count = -1;
  do {
    count = read(fd_, bytes_.data(), bytes_.size());
  } while (count < 0 && errno == EINTR);
  if (count >= 0) errno = errno_before;
  begin_ = 0;
  end_ = count > 0 ? static_cast<size_t>(count) : 0;
  return end_ > 0;
}

bool LineReader::next(std::span<char> buffer) {
  size_t stored = 0;
  const size_t room = buffer.size() - 1;
  while (stored < room && (begin_ < end_ || refill())) {
    const auto ahead =
        std::span<const char>(bytes_).subspan(begin_, std::min(end_ - begin_, room - stored));
    const size_t line = line_length(ahead, line_end_);
    const size_t take = line != 0 ? line : ahead.size();
    memcpy(buffer.data() + stored, ahead.data(), take);
    stored += take;
    begin_ += take;
    if (line != 0) break;
  }
  buffer[stored] = '\0';
  return stored > 0;
}

}  // namespace tarvio
