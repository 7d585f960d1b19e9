// Keeps the file of states and figures up to date.
#ifndef TARVIOD_STATE_PUBLISHER_H
#define TARVIOD_STATE_PUBLISHER_H

#include <sys/types.h>

#include "app_runs.h"
#include "base/deadline.h"
#include "base/owners.h"

namespace tarviod {

class StatePublisher {
 public:
  // mode, group  of the socket: those who may write to it may read the file.
  constexpr StatePublisher(mode_t mode, gid_t group)
      : mode_((mode & kWriteBits) << 1), group_(group) {}
  constexpr StatePublisher() = default;

  // Writes the file when anything but the count of descriptors is different from what it says. A
  // failure is reported once, until it succeeds; until then there is no file.
  void publish(const AppRunsTable& runs);
  // When it is to be called again in any case.
  [[nodiscard]] tarvio::Deadline due() const {
    return has_failed_ ? tarvio::Deadline::after(kRetryMs) : tarvio::Deadline::never();
  }
  // Has the next call write it in any case: somebody may have removed it, or the count of
  // descriptors matters.
  void forget() { written_.reset(); }
  // Removes it for good.
  void end();

 private:
  static constexpr mode_t kReadBits = 0444;
  static constexpr mode_t kWriteBits = 0222;
  static constexpr int kRetryMs = 1000;

  bool write(const char* body);

  mode_t mode_ = kReadBits;
  gid_t group_ = static_cast<gid_t>(-1);
  tarvio::CString written_;
  bool has_failed_ = false;
  bool has_ended_ = false;
};

// The text that a manager before this one has left; null when there is none, or, reported, when it
// cannot be read.
tarvio::CString read_published_state();

}  // namespace tarviod

#endif
