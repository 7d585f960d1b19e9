// The states that can be waited for.
#ifndef TARVIO_CLIENT_MANAGER_WAIT_STATES_H
#define TARVIO_CLIENT_MANAGER_WAIT_STATES_H

#include <span>
#include <string>
#include <string_view>

#include "manager/manager_state.h"

namespace client {

// All words: those of a status, "gone" for none, and those of a process.
std::span<const char* const> wait_states();

// Whether that is how it is with what has this name.
bool is_in_state(const ManagerState& state, const std::string& name, std::string_view wanted);

// How it is now, for people: "it is stopped, without a status".
std::string present_state(const ManagerState& state, const std::string& name);

}  // namespace client

#endif
