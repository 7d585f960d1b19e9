// What the manager and its keeper leave under /run for each other and for the clients.
#ifndef TARVIO_RUNTIME_RUN_PATHS_H
#define TARVIO_RUNTIME_RUN_PATHS_H

namespace runtime {

inline constexpr char kRunDirectory[] = "/run/tarvio";

// States and figures, for everybody who may use the manager's socket. See state_file.h.
inline constexpr char kStatePath[] = "/run/tarvio/state";

// The keeper's socket, for root alone.
inline constexpr char kKeeperSocket[] = "/run/tarvio/keeper";

// The applications that the keeper runs, for the manager that finds it dead. See ledger.h.
inline constexpr char kLedgerPath[] = "/run/tarvio/processes";

}  // namespace runtime

#endif
