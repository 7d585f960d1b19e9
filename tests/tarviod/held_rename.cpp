// Loaded into tarviod: no file gets its last name until the file that TARVIO_TEST_GO names exists.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

extern "C" int rename(const char* from, const char* to) noexcept {
  while (access(std::getenv("TARVIO_TEST_GO"), F_OK) != 0) usleep(1000);
  using Function = int (*)(const char*, const char*);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "rename"))(from, to);
}
