// The supervisor's watchdog: the main thread feeds it as long as the com thread makes progress.
#ifndef TARVIOD_WATCHDOG_H
#define TARVIOD_WATCHDOG_H

#include "base/deadline.h"

namespace tarviod {

// What a request, a job, or the start or the stop of one application may take.
inline constexpr int kStepSeconds = 30;

// For the com thread: what it begins now ends within this time, or it waits for work.
void begin_step(int seconds = kStepSeconds);
void end_steps();

// For the main thread: feeds the watchdog when it is time. Returns when to call this again.
tarvio::Deadline feed_watchdog();

}  // namespace tarviod

#endif
