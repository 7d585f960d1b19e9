// A question to the person at the terminal.
#ifndef TARVIO_CLIENT_TERMINAL_QUESTION_H
#define TARVIO_CLIENT_TERMINAL_QUESTION_H

#include <string>

#include "process/signal_hold.h"

namespace client {

// Whether there is a terminal to ask on.
bool can_ask();

// Shows the text on standard error and waits for a line. Returns whether that says yes. Throws
// Interrupted when a signal comes first.
bool ask(const std::string& text, const SignalHold& signals);

}  // namespace client

#endif
