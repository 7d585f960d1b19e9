// A question to the person at the terminal.
#ifndef TARVIO_CLIENT_TERMINAL_QUESTION_H
#define TARVIO_CLIENT_TERMINAL_QUESTION_H

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "process/signal_hold.h"

namespace client {

// Whether there is a terminal to ask on.
bool can_ask();

// Both show the text on standard error and wait for a line. They throw Interrupted when a signal
// comes first.

// Returns whether the line says yes.
bool ask(const std::string& text, const SignalHold& signals);
// The line is not shown while it is typed. Returns its size; none when it does not fit.
std::optional<size_t> ask_hidden(const std::string& text, const SignalHold& signals,
                                 std::span<char> room);

}  // namespace client

#endif
