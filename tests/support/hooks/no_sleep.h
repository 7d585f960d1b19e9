// Keeps the library from sleeping, and how long it would have.
#ifndef TARVIO_TESTS_SUPPORT_HOOKS_NO_SLEEP_H
#define TARVIO_TESTS_SUPPORT_HOOKS_NO_SLEEP_H

#include <vector>

#include "support/hooks/got_hook.h"

namespace tarvio_test {

// One at a time in a process.
class NoSleep {
 public:
  NoSleep() : hook_("sleep", Nap{&naps_}) {}
  NoSleep(const NoSleep&) = delete;
  NoSleep& operator=(const NoSleep&) = delete;

  // The seconds of each call so far.
  const std::vector<unsigned>& naps() const { return naps_; }

 private:
  struct Nap {
    std::vector<unsigned>* naps;
    unsigned operator()(unsigned seconds) const {
      naps->push_back(seconds);
      return 0;
    }
  };

  std::vector<unsigned> naps_;
  Hook<Nap> hook_;
};

}  // namespace tarvio_test

#endif
