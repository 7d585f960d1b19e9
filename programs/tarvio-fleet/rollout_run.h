// Carries a rollout out, wave after wave.
#ifndef TARVIO_FLEET_TOOL_ROLLOUT_RUN_H
#define TARVIO_FLEET_TOOL_ROLLOUT_RUN_H

#include <string>

#include "commands/command.h"
#include "fleet_settings.h"
#include "observer.h"
#include "process/signal_hold.h"
#include "rollout.h"
#include "rollout_report.h"

namespace fleet_tool {

class RolloutRun {
 public:
  RolloutRun(Observer& observer, Rollout rollout, RolloutReport& report);

  // Until all waves are done, too many boards have failed, or a signal has come that ends the
  // process. Returns the exit status. Throws a Failure; the rollout can be resumed then.
  client::ExitStatus run();

 private:
  void begin();
  void claim();
  bool run_waves();
  bool run_wave(size_t number);
  void take(const BoardOutcome& outcome, RolloutBoard& board);
  bool pause();
  void look_after();
  void save();
  void write_file(const std::string& text);
  void end(const char* state);
  void end_at_failure();
  [[nodiscard]] bool is_interrupted() const;
  [[nodiscard]] bool has_failed_too_often() const {
    return failures_ > static_cast<size_t>(rollout_.max_failures);
  }

  Observer& observer_;
  Rollout rollout_;
  RolloutReport& report_;
  const client::SignalHold signals_;
  size_t failures_ = 0;  // since it was begun or resumed
  bool was_connected_ = true;
  bool has_warned_ = false;  // of its file
  tarvio::Deadline next_save_ = tarvio::Deadline::after(0);
  tarvio::Deadline stalled_ = tarvio::Deadline::never();
};

// The newest record of a rollout, of the broker or of this user's files. Throws a Failure when
// there is none, or another operator carries it out now.
Rollout find_rollout(Observer& observer, const std::string& id);

// Removes what the broker and this user's files keep of a rollout. Throws a Failure as that does.
void forget_rollout(Observer& observer, const std::string& id);

}  // namespace fleet_tool

#endif
