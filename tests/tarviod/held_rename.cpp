// Loaded into tarviod: no file gets its last name, or not the one that TARVIO_TEST_RENAMED names,
// until the file that TARVIO_TEST_GO names exists.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

static bool is_held(const char* to) {
  const char* const only = std::getenv("TARVIO_TEST_RENAMED");
  return only == nullptr || std::strcmp(only, to) == 0;
}

extern "C" int rename(const char* from, const char* to) noexcept {
  while (is_held(to) && access(std::getenv("TARVIO_TEST_GO"), F_OK) != 0) usleep(1000);
  using Function = int (*)(const char*, const char*);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "rename"))(from, to);
}
