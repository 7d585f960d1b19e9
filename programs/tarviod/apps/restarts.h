// How often an application that ends by itself is started again.
#ifndef TARVIOD_RESTARTS_H
#define TARVIOD_RESTARTS_H

#include "base/deadline.h"

namespace tarviod {

class Restarts {
 public:
  static constexpr int kMost = 5;
  static constexpr int kWindowS = 60;

  // Counts a restart and gives the pause before it, which grows: -1 when there were enough.
  int next_pause_ms() {
    if (count_ > 0 && window_.passed()) count_ = 0;
    if (count_ == kMost) return -1;
    if (count_ == 0) window_ = tarvio::Deadline::after(kWindowS * 1000);
    return kFirstPauseMs << count_++;
  }

  // After a start or a stop that was asked for.
  void reset() { count_ = 0; }

 private:
  static constexpr int kFirstPauseMs = 250;

  int count_ = 0;
  tarvio::Deadline window_ = tarvio::Deadline::never();
};

}  // namespace tarviod

#endif
