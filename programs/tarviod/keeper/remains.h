// What a keeper that was killed has left behind.
#ifndef TARVIOD_REMAINS_H
#define TARVIOD_REMAINS_H

namespace tarviod {

// Ends the processes that the ledger names, and removes it. Blocks for at most a few seconds. False
// when the ledger is not whole: it is ignored then, and the processes of all applications are ended
// that their environment shows.
bool end_remains();

}  // namespace tarviod

#endif
