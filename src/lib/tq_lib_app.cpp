#include "base/owners.h"
#include "lib/manager_request.h"
#include "tarvio/client.h"

namespace {

// Asks and waits for the answer, which is not looked at, on purpose.
int ask(const char* command, const char* name) {
  const tarvio::Fd fd(tarvio::request_manager(command, name));
  if (!fd.valid()) return 0;
  const tarvio::StringList reply(tq_list_create());
  (void)tq_receive_com(fd.get(), reply.get());
  return 0;
}

}  // namespace

int tq_lib_start_app(const char* name) { return ask("start_app", name); }

int tq_lib_stop_app(const char* name) { return ask("stop_app", name); }

int tq_lib_start_all_app(void) { return ask("start_all", nullptr); }

int tq_lib_stop_all_app(void) { return ask("stop_all", nullptr); }
