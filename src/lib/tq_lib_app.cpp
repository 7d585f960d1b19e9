#include "base/owners.h"
#include "lib/manager_request.h"
#include "tarvio/client.h"

namespace {

// Waits for the reply and ignores it (oddity 124).
int request(const char* command, const char* name) {
  const tarvio::Fd fd(tarvio::request_manager(command, name));
  if (!fd.valid()) return 0;
  const tarvio::StringList reply(tq_list_create());
  (void)tq_receive_com(fd.get(), reply.get());
  return 0;
}

}  // namespace

int tq_lib_start_app(const char* name) { return request("start_app", name); }

int tq_lib_stop_app(const char* name) { return request("stop_app", name); }

int tq_lib_start_all_app(void) { return request("start_all", nullptr); }

int tq_lib_stop_all_app(void) { return request("stop_all", nullptr); }
