// Going to the background: the process that was called waits until the manager answers requests, so
// that its exit status says whether the start succeeded.
#ifndef TARVIOD_BACKGROUND_H
#define TARVIOD_BACKGROUND_H

#include "base/owners.h"

namespace tarviod {

class Background {
 public:
  // Forks when wanted. Only the child returns; the parent exits with status 0 once `ready` was
  // called, or with the child's own status when the child ended first.
  explicit Background(bool wanted);

  // Lets the parent go and the terminal with it. Does nothing in the foreground.
  void ready();

 private:
  tarvio::Fd ready_;
};

}  // namespace tarviod

#endif
