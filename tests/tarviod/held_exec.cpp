// Loaded into tarviod: a forked child waits until the file that TARVIO_TEST_GO names exists, and
// becomes another program then.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

extern "C" int execvp(const char* file, char* const* arguments) noexcept {
  while (access(std::getenv("TARVIO_TEST_GO"), F_OK) != 0) usleep(1000);
  using Function = int (*)(const char*, char* const*);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "execvp"))(file, arguments);
}
