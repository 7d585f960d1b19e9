// The users of the sandbox.
#ifndef TARVIO_TESTS_SUPPORT_USERS_H
#define TARVIO_TESTS_SUPPORT_USERS_H

#include <fstream>

namespace tarvio_test {

// An ordinary user's sandbox has no other users and groups.
inline bool has_other_users() {
  std::ifstream map("/proc/self/uid_map");
  unsigned inside = 0;
  unsigned outside = 0;
  unsigned count = 0;
  map >> inside >> outside >> count;
  return count > 1;
}

}  // namespace tarvio_test

#endif
