// The sandbox's stand-in for opkg, first on PATH from here on. See tests/sandbox/opkg for what it
// can be told in the environment.
#ifndef TARVIO_TESTS_SUPPORT_PACKAGES_STAND_IN_OPKG_H
#define TARVIO_TESTS_SUPPORT_PACKAGES_STAND_IN_OPKG_H

#include <cstdlib>
#include <string>

namespace tarvio_test {

inline void use_stand_in_opkg() {
  const char* path = std::getenv("PATH");
  ::setenv("PATH", (std::string(TARVIO_SANDBOX_TOOLS ":") + path).c_str(), 1);
}

}  // namespace tarvio_test

#endif
