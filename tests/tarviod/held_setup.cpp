// Loaded into tarviod: the last step of its start-up waits until the file that TARVIO_TEST_GO names
// exists.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

#include "tarvio/com.h"

int tq_setup_com_server(const char* path, tq_com_handler_func handler) {
  while (access(std::getenv("TARVIO_TEST_GO"), F_OK) != 0) usleep(1000);
  using Function = int (*)(const char*, tq_com_handler_func);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "tq_setup_com_server"))(path, handler);
}
