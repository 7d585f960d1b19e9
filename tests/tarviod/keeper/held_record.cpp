// Loaded into the keeper: its ledger is replaced once the file that TARVIO_TEST_GO names exists.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" int rename(const char* from, const char* to) noexcept {
  const bool is_ledger = std::strcmp(to, "/run/tarvio/processes") == 0;
  while (is_ledger && access(std::getenv("TARVIO_TEST_GO"), F_OK) != 0) usleep(1000);
  using Function = int (*)(const char*, const char*);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "rename"))(from, to);
}
