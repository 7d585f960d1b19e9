// Loaded into tarviod: while the application manager is set up, one of its calls of scandir, fopen,
// stat and open fails: the one that the file named by TARVIO_TEST_GO counts to. The file is removed
// when there were fewer.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "tarvio/app.h"

namespace {

int left = 0;

bool fails(int error) {
  if (left == 0 || --left > 0) return false;
  errno = error;
  return true;
}

template <typename Function>
Function* real(const char* name, Function* /*type*/) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

int tq_setup_app_manager(void) {
  const char* path = std::getenv("TARVIO_TEST_GO");
  FILE* file = std::fopen(path, "re");
  int count = 0;
  (void)!std::fscanf(file, "%d", &count);
  std::fclose(file);
  left = count;
  const int result = real("tq_setup_app_manager", tq_setup_app_manager)();
  if (left > 0) unlink(path);
  left = 0;
  return result;
}

// The names under which a program with files of 64 bits, as tarviod is, calls them.
extern "C" {

int scandir64(const char* path, dirent64*** entries, int (*filter)(const dirent64*),
              int (*compare)(const dirent64**, const dirent64**)) {
  return fails(ENOMEM) ? -1 : real("scandir64", scandir64)(path, entries, filter, compare);
}

FILE* fopen64(const char* path, const char* mode) {
  return fails(EMFILE) ? nullptr : real("fopen64", fopen64)(path, mode);
}

using Stat = int(const char* path, struct stat64* info);
int stat64(const char* path, struct stat64* info) noexcept {
  return fails(EIO) ? -1 : real<Stat>("stat64", nullptr)(path, info);
}

int open64(const char* path, int flags, ...) {
  return fails(EMFILE) ? -1 : real("open64", open64)(path, flags, 0);
}
}
