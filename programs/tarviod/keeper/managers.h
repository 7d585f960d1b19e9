// The connections of the managers: requests and their replies.
#ifndef TARVIOD_MANAGERS_H
#define TARVIOD_MANAGERS_H

#include <poll.h>
#include <stdint.h>

#include <array>
#include <span>

#include "base/owners.h"
#include "keeper/kept_apps.h"
#include "keeper/protocol.h"

namespace tarviod {

class Managers {
 public:
  // A manager has two; more are there while one takes over. Beyond, the oldest is closed.
  static constexpr size_t kMost = 16;

  explicit Managers(KeptApps& apps) : apps_(apps) {}

  // For poll: what to wait for, and what has become of it.
  void list(std::span<pollfd, kMost> files) const;
  void handle(std::span<const pollfd, kMost> files);
  void accept(int listening);

  // Sends what the state of the applications has made due.
  void answer();
  // Nothing is started any more.
  void begin_end() { is_ending_ = true; }
  [[nodiscard]] bool is_ending() const { return is_ending_; }
  // All applications are stopped for good.
  void answer_end();

 private:
  struct Manager {
    tarvio::Fd socket;
    uint64_t number = 0;  // grows with each
    bool watches = false;
    bool waits_for_end = false;
    const App* stopping = nullptr;  // what it waits for
    const App* record = nullptr;    // the next that may be sent to it
    int records = 0;                // still to be sent

    [[nodiscard]] short events() const;
  };

  Manager& place();
  void receive(Manager& manager);
  void serve(Manager& manager, KeeperRequest& request, const Streams& streams);
  static void reply(Manager& manager, int code);
  static void send_records(Manager& manager);

  KeptApps& apps_;
  std::array<Manager, kMost> managers_;
  uint64_t count_ = 0;
  bool is_ending_ = false;
};

}  // namespace tarviod

#endif
