// Waits that end.
#ifndef TARVIO_SRC_BASE_DEADLINE_H
#define TARVIO_SRC_BASE_DEADLINE_H

#include <stdint.h>

#include <string_view>

namespace tarvio {

// A point in time on the monotonic clock, or never: setting the device's clock moves no deadline.
class Deadline {
 public:
  static Deadline after(int milliseconds);
  // 0 seconds or less: never.
  static Deadline after_seconds(double seconds);
  static constexpr Deadline never() { return Deadline(kNever); }

  [[nodiscard]] bool is_set() const { return at_us_ != kNever; }
  [[nodiscard]] bool passed() const { return remaining_ms() == 0; }

  // The one of two that comes first.
  static Deadline sooner(const Deadline& one, const Deadline& other) {
    // Never, which is -1, is the latest.
    return static_cast<uint64_t>(one.at_us_) < static_cast<uint64_t>(other.at_us_) ? one : other;
  }

  // As poll takes it: in milliseconds, or -1 for never. Rounded up, so that a wait does not end
  // early and then spin through the last millisecond.
  [[nodiscard]] int remaining_ms() const;

 private:
  static constexpr int64_t kNever = -1;

  explicit constexpr Deadline(int64_t at_us) : at_us_(at_us) {}

  int64_t at_us_;
};

// Waits until the descriptor has one of the poll events or is hung up; false when the deadline
// passed first, with errno ETIMEDOUT, or poll failed.
bool wait_for(int fd, short events, const Deadline& deadline);

// Sends all bytes without raising SIGPIPE; false when the deadline passed first or the peer is
// gone.
bool send_all(int fd, std::string_view bytes, const Deadline& deadline);

}  // namespace tarvio

#endif
