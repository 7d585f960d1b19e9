// What the manager reports to the supervisor that started it, in the protocol of sd_notify(3).
#ifndef TARVIOD_NOTIFY_H
#define TARVIOD_NOTIFY_H

namespace tarviod {

// Takes the supervisor's variables out of the environment, so that no process that the manager
// starts reports in its place. Called once, before anything else.
void meet_supervisor();

// Sends assignments with line feeds between them, such as "READY=1". Nothing without a supervisor.
void notify(const char* state);
void notify_reloading();
// For people: how many applications are installed.
void notify_installed(int count);

// Half of the time after which the supervisor takes the manager for hung; 0 for never.
int watchdog_period_ms();

}  // namespace tarviod

#endif
