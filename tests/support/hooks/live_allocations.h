// Counts what the library allocates and does not free: exact where a leak check is not, because it
// tells memory that the contract leaves allocated from memory that is lost.
#ifndef TARVIO_TESTS_SUPPORT_HOOKS_LIVE_ALLOCATIONS_H
#define TARVIO_TESTS_SUPPORT_HOOKS_LIVE_ALLOCATIONS_H

#include <memory>
#include <vector>

#include "support/hooks/got_hook.h"

namespace tarvio_test {

// One at a time in a process, and not together with FailAlloc. Allocations inside libc (a stream's
// buffer) are not counted.
class LiveAllocations {
 public:
  LiveAllocations();
  LiveAllocations(const LiveAllocations&) = delete;
  LiveAllocations& operator=(const LiveAllocations&) = delete;

  // Allocations since the start, less what the library freed.
  long count() const;

 private:
  std::vector<std::unique_ptr<ImportPatch>> patches_;
};

}  // namespace tarvio_test

#endif
