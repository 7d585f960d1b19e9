// Calls the request handler in this thread, on one end of a pair of sockets, with two applications
// that a binding of the test's own starts and stops.
#ifndef TARVIO_TESTS_SUPPORT_COM_REQUEST_HANDLER_H
#define TARVIO_TESTS_SUPPORT_COM_REQUEST_HANDLER_H

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/com/manager.h"
#include "support/com/sockets.h"
#include "tarvio/tarvio.h"

namespace tarvio_test {

// What the binding was asked for ("start clock"), and what it is going to answer (0 when empty).
inline std::vector<std::string> binding_calls;
inline std::deque<int> binding_answers;

inline int call_binding(const std::string& operation, const tq_app_info* app) {
  binding_calls.push_back(operation + " " + app->package->name);
  if (binding_answers.empty()) return 0;
  const int answer = binding_answers.front();
  binding_answers.pop_front();
  return answer;
}

class RequestHandler : public testing::Test {
 protected:
  RequestHandler() {
    set_managers_up({{"clock"}, {"webserver"}});
    linux_app_binding->start = [](tq_app_info* app) { return call_binding("start", app); };
    linux_app_binding->stop = [](tq_app_info* app) { return call_binding("stop", app); };
    binding_calls.clear();
    binding_answers.clear();
  }

  // The reply to a request that the client ends.
  std::string serve(std::string_view request) {
    auto [client, server] = socket_pair();
    client.send(request);
    client.end_sending();
    return serve(client, std::move(server));
  }

  std::string serve(const Socket& client, Socket server) {
    result_ = tq_request_handler(server.release());
    return client.read_to_end();
  }

  static void set_status(const char* name, int32_t state, const char* detail, int32_t type = 0) {
    const tq_status status = {.type = type,
                              .id = 7,
                              .state = state,
                              .detail = const_cast<char*>(detail),
                              .name = const_cast<char*>(name),
                              .next = nullptr};
    tq_set_status2(&status, 1);
  }

  // Three further statuses, one of them not of an application.
  static void set_three_statuses() {
    set_status("web", 0, "started app");
    set_status("disk", 1, "nearly full", 3);
    set_status("clock", 2, "start app failed.");
  }

  uint32_t result_ = 99;
};

}  // namespace tarvio_test

#endif
