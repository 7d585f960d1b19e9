// The descriptors that the manager has open, which must not run out.
#ifndef TARVIOD_DESCRIPTORS_H
#define TARVIOD_DESCRIPTORS_H

namespace tarviod {

struct Descriptors {
  int used;
  int limit;
};
Descriptors count_descriptors();

// Warns when 80 % of those that the manager may have are open, once until there are fewer than 70 %.
// Returns whether one of these has just come.
bool watch_descriptors();

}  // namespace tarviod

#endif
