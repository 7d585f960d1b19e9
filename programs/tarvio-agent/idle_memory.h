// Memory of a process that waits.
#ifndef TARVIO_AGENT_IDLE_MEMORY_H
#define TARVIO_AGENT_IDLE_MEMORY_H

#include "base/deadline.h"

namespace agent {

// Gives back what a process that has nothing to do needs no more: free memory, and the pages of
// code that a handshake or an answer has touched, which come back from the file when they are
// needed.
class IdleMemory {
 public:
  // When to call step() at the latest.
  [[nodiscard]] const tarvio::Deadline& due() const { return due_; }

  // After each wait.
  void step(bool has_worked);

 private:
  static constexpr int kIdleMs = 3000;

  tarvio::Deadline due_ = tarvio::Deadline::after(kIdleMs);
};

}  // namespace agent

#endif
