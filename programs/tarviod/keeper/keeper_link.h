// The manager's side of the keeper.
#ifndef TARVIOD_KEEPER_LINK_H
#define TARVIOD_KEEPER_LINK_H

#include "base/deadline.h"
#include "base/owners.h"
#include "keeper/protocol.h"

namespace tarviod {

// How a keeper was found.
enum class KeeperFound {
  kNone,      // neither the one that ran nor a new one: errno says why
  kRunning,   // the one that a manager before this one has left
  kStarted,   // a new one; what a dead one has left was ended before
  kReplaced,  // as above; the one before did not answer, and was killed
  // A new one; the ledger of a dead one was not whole. What shows the name of an application was
  // ended.
  kStartedWithoutLedger,
};

// A connection to the keeper, for one thread.
class KeeperLink {
 public:
  // Connects to the keeper that runs, else starts one under `kKeeperSocket` after ending what the
  // ledger of one that is dead, or does not answer, names. A keeper of another protocol is asked to
  // end first, which takes as long as its applications do; else this blocks for at most a few
  // seconds.
  KeeperFound open();

  [[nodiscard]] bool valid() const { return socket_.valid(); }
  void close() { socket_.reset(); }

  // Asks and waits for the reply. What is started with the output "inherit" gets this process's
  // standard output and standard error. The link is closed, and false returned with errno, when the
  // keeper is gone or the deadline passes first.
  bool ask(const KeeperRequest& request, KeeperReply& reply, const tarvio::Deadline& until);

  // Reads one of the records that follow a reply. False as above.
  bool next(KeptApp& app, const tarvio::Deadline& until);

  // After Ask::kWatch: becomes readable with each change, and when the keeper is gone.
  [[nodiscard]] int fd() const { return socket_.get(); }
  // Takes what has become readable; false when the keeper is gone. The link is closed then.
  bool take_changes();

 private:
  bool join();
  bool start();
  bool greet(int milliseconds);
  bool fail();

  tarvio::Fd socket_;
};

}  // namespace tarviod

#endif
