// What a process that is started now finds open.
#ifndef TARVIO_TESTS_SUPPORT_CHILD_DESCRIPTORS_H
#define TARVIO_TESTS_SUPPORT_CHILD_DESCRIPTORS_H

#include <cstdio>
#include <string>

namespace tarvio_test {

inline std::string child_descriptors() {
  std::string list;
  FILE* output = popen("ls /proc/self/fd", "re");
  for (int byte = getc(output); byte != EOF; byte = getc(output)) list += static_cast<char>(byte);
  pclose(output);
  return list;
}

}  // namespace tarvio_test

#endif
