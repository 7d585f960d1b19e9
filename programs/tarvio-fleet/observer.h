// The operator's connection: what the broker keeps of the boards, and what they answer.
#ifndef TARVIO_FLEET_TOOL_OBSERVER_H
#define TARVIO_FLEET_TOOL_OBSERVER_H

#include <csignal>
#include <map>
#include <set>
#include <string>

#include "base/deadline.h"
#include "board.h"
#include "fleet/session.h"
#include "fleet_settings.h"

namespace fleet_tool {

// What comes while others wait.
class Listener {
 public:
  Listener() = default;
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  virtual ~Listener() = default;

  virtual void on_answer(const std::string& board, const Json& answer) = 0;
  virtual void on_progress(const std::string& board, const Json& progress) = 0;
};

// While this is here, a connection or an output that nobody reads any more is an error and no end
// of the process.
class IgnoredPipeSignal {
 public:
  IgnoredPipeSignal() : before_(signal(SIGPIPE, SIG_IGN)) {}
  IgnoredPipeSignal(const IgnoredPipeSignal&) = delete;
  IgnoredPipeSignal& operator=(const IgnoredPipeSignal&) = delete;
  ~IgnoredPipeSignal() { (void)signal(SIGPIPE, before_); }

 private:
  void (*before_)(int);
};

class Observer {
 public:
  enum class Needs { kBoards, kBoardsAndRollouts };

  // Connects, and waits until it has all that the broker keeps. Throws a Failure; of kTimeout when
  // that takes longer than a positive number of seconds.
  Observer(const Settings& settings, double seconds, Needs needs = Needs::kBoards);

  [[nodiscard]] const Boards& boards() const { return boards_; }
  // Under their ids, as text.
  [[nodiscard]] const std::map<std::string, std::string>& rollouts() const { return rollouts_; }

  // Null for nobody.
  void set_listener(Listener* listener) { listener_ = listener; }

  [[nodiscard]] bool is_connected() const { return session_.is_connected(); }
  // Why the connection was lost last.
  [[nodiscard]] const std::string& cause() const { return cause_; }

  // Carries out a rollout from now on. Once the broker has sent a record of that run back, one of a
  // later run is a Failure in whatever takes it in. Runs that were there before may not have heard
  // of this one yet when they write their last record.
  void claim(const std::string& id, const std::string& run);
  [[nodiscard]] bool has_claim() const { return is_claimed_; }

  // Takes in what comes until the deadline, or a signal that ends the process has come or a message
  // has been taken in. False when the deadline has passed. Throws a Failure when the connection is
  // lost for long.
  bool wait(const tarvio::Deadline& until);

  // Takes in all that the broker has kept up to now.
  void catch_up();

  void ask(const std::string& board, const Json& request, double seconds);
  // Keeps a text at the broker; empty removes it. Without a connection the newest of a topic goes
  // there once it is back and what the broker keeps has come.
  void keep(const std::string& topic, const std::string& text);

  // Waits until all of that has reached the broker. Throws a Failure when that takes longer.
  void flush(int milliseconds);

 private:
  void take_events();
  void take(const fleet::Message& message);
  void take_rollout(const std::string& id, const std::string& text);
  void on_connected();
  void on_delivered(const fleet::Event& event);
  void send_mark();
  void send_unsent();
  void publish(const fleet::Message& message);
  void step(const tarvio::Deadline& until);

  const IgnoredPipeSignal ignored_;
  const std::string client_;  // unlike that of every other run
  const Needs needs_;
  const fleet::Broker broker_;
  fleet::Session session_;
  Boards boards_;
  std::map<std::string, std::string> rollouts_;
  Listener* listener_ = nullptr;
  bool is_complete_ = false;  // all that the broker keeps has come since it was connected
  bool has_taken_ = false;
  std::map<int, std::string> undelivered_;     // topics, under the numbers of their messages
  std::map<std::string, std::string> unsent_;  // texts to keep, under their topics
  std::string claimed_id_;
  std::string claimed_run_;
  std::set<std::string> earlier_runs_;  // of the claimed rollout
  bool is_claimed_ = false;
  std::string cause_;  // of the last loss
  tarvio::Deadline lost_until_ = tarvio::Deadline::never();
};

}  // namespace fleet_tool

#endif
