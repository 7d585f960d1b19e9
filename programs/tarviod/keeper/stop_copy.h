// A stop file as it was at the start, for the case that its package is upgraded or removed while
// the application runs.
#ifndef TARVIOD_STOP_COPY_H
#define TARVIOD_STOP_COPY_H

#include <sys/stat.h>

#include "base/owners.h"

namespace tarviod {

class StopCopy {
 public:
  // What cannot be copied, such as a file that does not exist, is not kept.
  void make(const char* file);

  // The copy, once the file is not the one any more that was copied; else -1.
  [[nodiscard]] int replacement_of(const char* file) const;

 private:
  tarvio::Fd copy_;
  struct stat info_ = {};
};

}  // namespace tarviod

#endif
