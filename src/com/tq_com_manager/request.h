// The request side of the protocol: the lines of one connection, read under a deadline.
#ifndef TARVIO_SRC_COM_TQ_COM_MANAGER_REQUEST_H
#define TARVIO_SRC_COM_TQ_COM_MANAGER_REQUEST_H

#include <stddef.h>

#include <array>

#include "base/deadline.h"

namespace tarvio {

// Needs neither memory nor a descriptor, so that a manager that has run out of either still
// answers.
class Request {
 public:
  // Reads to the end of the data. False when the deadline passed first: the request is then not to
  // be executed.
  bool read(int fd, const Deadline& deadline);

  // The two lines that count, null for one that did not arrive. Further lines are dropped.
  [[nodiscard]] const char* command() const { return count_ > 0 ? lines_[0].data() : nullptr; }
  [[nodiscard]] const char* name() const { return count_ > 1 ? lines_[1].data() : nullptr; }

 private:
  // A longer line counts as several (oddity 121).
  static constexpr size_t kLineSize = 255;

  std::array<std::array<char, kLineSize>, 2> lines_;
  size_t count_ = 0;
};

}  // namespace tarvio

#endif
