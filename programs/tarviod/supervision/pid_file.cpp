#include "pid_file.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "runtime/whole_file.h"
#include "settings/warn.h"

namespace tarviod {

namespace {

constexpr mode_t kMode = 0644;
constexpr size_t kWhySize = 128;

}  // namespace

bool write_pid_file(const char* path) {
  char text[16];
  (void)snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
  if (runtime::write_whole_file(path, text, kMode)) return true;
  char why[kWhySize];
  (void)snprintf(why, sizeof why, "%s: name a file in a directory that can be written to",
                 strerror(errno));
  warn(path, why);
  return false;
}

}  // namespace tarviod
