// Requests to the manager: all that one connection may send.
#include <sys/socket.h>

#include <cerrno>

#include "base/chain.h"
#include "fuzzer.h"
#include "models.h"
#include "support/com/manager.h"
#include "support/com/sockets.h"
#include "support/repairs.h"
#include "tarvio/app.h"
#include "tarvio/com.h"
#include "tarvio/status_manager.h"

namespace tarvio_fuzz {
namespace {

constexpr size_t kPieceBytes = 254;
constexpr size_t kMostBytes = 1 << 16;  // what a socket holds at once
constexpr int kFailure = 5;             // of each start of the application "broken"
constexpr char kRunning[] = "radio";

struct App {
  const char* name;
  int code;  // of a start
};
constexpr App kApps[] = {{"webserver", 0}, {"web", 0}, {kRunning, 0}, {"broken", kFailure}};

int start(tq_app_info* app) {
  for (const App& known : kApps)
    if (std::string(known.name) == app->package->name) return known.code;
  return EINVAL;
}

void set_manager_up() {
  if (tq_known_applications() != nullptr) return;
  std::vector<tarvio_test::Application> applications;
  for (const App& app : kApps) applications.push_back({app.name});
  tarvio_test::set_managers_up(applications);
  linux_app_binding->start = start;
  linux_app_binding->stop = [](tq_app_info*) { return 0; };
  static constexpr tq_com_word kWords[] = {{"start_exact", tq_start_app_exact, nullptr},
                                           {"stop_exact", tq_stop_app_exact, nullptr},
                                           {nullptr, nullptr, nullptr}};
  tq_set_com_words(kWords);
}

void set_status(const char* name, int32_t type, int32_t state, const char* detail) {
  const tq_status status = {.type = type,
                            .id = 0,
                            .state = state,
                            .detail = const_cast<char*>(detail),
                            .name = const_cast<char*>(name),
                            .next = nullptr};
  tq_set_status2(&status, 1);
}

// One application runs, and something else has a status.
void reset() {
  set_manager_up();
  for (tq_app_info* app : tarvio::Elements<tq_app_info>(tq_known_applications())) {
    app->stopped = std::string(app->package->name) == kRunning ? 0 : 1;
    tq_remove_status2(app->package->name);
  }
  set_status("disk", 3, TQ_STATE_THIRD, "nearly full");
  set_status(kRunning, TQ_STATUS_TYPE_APPLICATION, TQ_STATE_NORMAL, "started app");
}

int code_of_start(const std::string& name, bool is_exact) {
  for (const App& app : kApps) {
    const std::string known = app.name;
    if (is_exact ? known == name : known.find(name) != std::string::npos) return app.code;
  }
  return EINVAL;
}

int code_of_stop(const std::string& name, bool is_exact) {
  return code_of_start(name, is_exact) == EINVAL ? EINVAL : 0;
}

std::string expected_of(const std::string& request) {
  Texts lines = pieces_of(request, kPieceBytes);
  for (std::string& line : lines) line = chopped(line);
  if (lines.empty()) return "";
  const std::string& word = lines[0];
  const bool has_name = lines.size() > 1;
  const std::string name = has_name ? lines[1] : "";
  const auto code = [](int number) { return std::to_string(number) + "\n\n"; };
  if (word == "status_all") return "disk\n1\nnearly full\nradio\n0\nstarted app\n";
  if (word == "status_app") return "radio\n0\nstarted app\n";
  if (word == "start_app") return code(has_name ? code_of_start(name, false) : EINVAL);
  if (word == "stop_app") return has_name ? code(code_of_stop(name, false)) : "";
  if (word == "start_exact") return code(has_name ? code_of_start(name, true) : EINVAL);
  if (word == "stop_exact") return code(has_name ? code_of_stop(name, true) : EINVAL);
  if (word == "start_all") return code(kFailure);
  return word == "stop_all" ? "0\n" : "";
}

std::string check_request(const std::string& request) {
  if (request.size() > kMostBytes) return "";
  const tarvio_test::Repairs repairs(TQ_REPAIR_ALL);
  reset();
  auto [client, server] = tarvio_test::socket_pair();
  client.send(request);
  client.end_sending();
  if (tq_request_handler(server.release()) != 0) return "the connection was not closed";
  const std::string reply = client.read_to_end();
  return reply == expected_of(request) ? "" : "another reply: " + reply;
}

}  // namespace

const Fuzzer kRequest = {.corpus = "request", .check = check_request};

}  // namespace tarvio_fuzz
