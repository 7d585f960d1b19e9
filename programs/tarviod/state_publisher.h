// Keeps the file of states and figures up to date.
#ifndef TARVIOD_STATE_PUBLISHER_H
#define TARVIOD_STATE_PUBLISHER_H

#include <sys/types.h>

#include "app_runs.h"
#include "base/owners.h"

namespace tarviod {

class StatePublisher {
 public:
  // mode, group  of those who may read the file: as the socket's.
  StatePublisher(mode_t mode, gid_t group) : mode_(mode), group_(group) {}

  // Writes the file when anything but the count of descriptors is different from what it says. A
  // failure is reported once, until it succeeds.
  void publish(const AppRunsTable& runs);

 private:
  bool write(const char* body);

  mode_t mode_;
  gid_t group_;
  tarvio::CString written_;
  bool has_failed_ = false;
};

// The text that a manager before this one has left; null when there is none, or, reported, when it
// cannot be read.
tarvio::CString read_published_state();
void remove_published_state();

}  // namespace tarviod

#endif
