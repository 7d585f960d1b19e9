// Signals that must wait until nothing is left behind.
#ifndef TARVIO_CLIENT_PROCESS_SIGNAL_HOLD_H
#define TARVIO_CLIENT_PROCESS_SIGNAL_HOLD_H

#include <signal.h>

#include "base/owners.h"

namespace client {

// While it lives, the signals that end the process are only noted; what came acts when its life
// ends. Signals that the process was told to ignore stay ignored.
class SignalHold {
 public:
  SignalHold();
  ~SignalHold();
  SignalHold(const SignalHold&) = delete;
  SignalHold& operator=(const SignalHold&) = delete;

  // Descriptor that is readable as soon as a signal came that is to end the process. Not to be
  // read.
  [[nodiscard]] int ending() const { return ending_.get(); }
  // Descriptor that is readable when a child ended.
  [[nodiscard]] int child() const { return child_.get(); }

  // In a new process: has the signals act as before.
  void release_in_child() const;

 private:
  sigset_t before_ = {};
  tarvio::Fd ending_;
  tarvio::Fd child_;
};

}  // namespace client

#endif
