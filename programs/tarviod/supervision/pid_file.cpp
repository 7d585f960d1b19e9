#include "pid_file.h"

#include <stdio.h>
#include <unistd.h>

#include "runtime/whole_file.h"
#include "settings/warn.h"

namespace tarviod {

namespace {

constexpr mode_t kMode = 0644;

}  // namespace

bool write_pid_file(const char* path) {
  char text[16];
  (void)snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
  return runtime::write_whole_file(path, text, kMode) || refuse_file(path);
}

}  // namespace tarviod
