// The life of the manager: start-up of the library's managers in their order, serving, shutdown.
#ifndef TARVIOD_MANAGER_H
#define TARVIOD_MANAGER_H

#include "apps/app_runner.h"
#include "runtime/config.h"
#include "settings/command_line.h"
#include "watch/log_watch.h"

namespace tarviod {

// Sets everything up until requests are answered, and says so. False, with the reason on standard
// error, when that fails.
bool set_up(const Options& options, LogWatch& log_watch, AppRunner& runner);

// Whether the manager would take the configuration that was read; says so, and names hooks for
// applications that are not installed. Needs no other set-up and leaves a running manager alone.
bool check_config(const Options& options, const runtime::Config& config);

// Answers requests and watches the log until a signal ends it, then stops the applications unless
// they are to be kept, and removes the socket.
//
// signal_fd  see catch_signals.
void serve(const Options& options, int signal_fd, LogWatch& log_watch);

}  // namespace tarviod

#endif
