// The process that runs the applications: it forks them, waits for them, holds their output, and
// outlives a manager that was killed. Single-threaded, so that it may fork at any time.
#ifndef TARVIOD_KEEPER_H
#define TARVIOD_KEEPER_H

namespace tarviod {

// The name under which the program is that process.
inline constexpr char kKeeperName[] = "tarviod-keeper";

// Its listening socket, bound by the manager that starts it.
inline constexpr int kKeeperListenFd = 0;

// In the environment of an application: its name. What it starts inherits that, in sessions of
// their own as well.
inline constexpr char kApplicationVariable[] = "TARVIO_APPLICATION";

// Serves managers until one asks for the end.
int run_keeper();

}  // namespace tarviod

#endif
