#include "manager/wait_states.h"

#include <array>

#include "manager/app_text.h"
#include "terminal/words.h"

namespace client {

namespace {

using runtime::AppState;

constexpr std::array kWaitStates = {"normal", "warning", "error", "gone", "running", "ended"};

// It was started, and neither runs nor is about to again.
bool has_ended(const AppFacts& app) {
  return app.starts > 0 && (app.state == AppState::kEnded || app.state == AppState::kStopped);
}

}  // namespace

std::span<const char* const> wait_states() { return kWaitStates; }

bool is_in_state(const ManagerState& state, const std::string& name, std::string_view wanted) {
  const AppFacts* const app = state.find_app(name);
  if (wanted == "running") return app != nullptr && app->state == AppState::kRunning;
  if (wanted == "ended") return app != nullptr && has_ended(*app);
  const Status* const status = find_status(state.statuses, name);
  return wanted == (status == nullptr ? "gone" : state_word(status->state));
}

std::string present_state(const ManagerState& state, const std::string& name) {
  const AppFacts* const app = state.find_app(name);
  const Status* const status = find_status(state.statuses, name);
  std::string words = app == nullptr ? "it is not an application that the manager knows"
                                     : "it is " + state_word(*app);
  if (status == nullptr) return words + ", without a status";
  words += ", with the status " + state_word(status->state);
  return status->detail.empty() ? words : words + ": " + status->detail;
}

}  // namespace client
