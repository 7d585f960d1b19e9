#include "rollout_run.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "fleet/payload.h"
#include "fleet/topics.h"
#include "process/failure.h"
#include "runtime/whole_file.h"

namespace fleet_tool {

namespace {

using client::ExitStatus;
using client::Failure;
using tarvio::Deadline;

constexpr int kSaveMs = 1000;
constexpr int kLargeSaveMs = 4000;
constexpr size_t kLarge = 100'000;  // bytes of a record
constexpr int kLookMs = 200;
// In which a rollout that is carried out is saved again. One that was not looked after for half
// of that may have been resumed by somebody else.
constexpr int kRunningMs = 8000;
constexpr int kStalledMs = kRunningMs / 2;
constexpr int kFlushMs = 30'000;
constexpr int kInterruptedFlushMs = 2000;
constexpr size_t kAtOnce = 1000;
constexpr mode_t kMode = 0600;

std::string file_of(const std::string& id) { return state_directory() + "/" + id + ".json"; }

std::string random_run() {
  std::random_device random;
  return std::to_string(random()) + "-" + std::to_string(random());
}

std::string topic_of(const std::string& id) { return std::string(fleet::kRollouts) + id; }

std::optional<Rollout> parse_any(const std::string& text) {
  try {
    return parse_rollout(text);
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
}

std::optional<Rollout> kept_at_broker(const Observer& observer, const std::string& id) {
  const auto found = observer.rollouts().find(id);
  return found == observer.rollouts().end() ? std::nullopt : parse_any(found->second);
}

std::optional<Rollout> kept_in_file(const std::string& id) {
  std::ifstream file(file_of(id), std::ios::binary);
  return file ? parse_any({std::istreambuf_iterator<char>(file), {}}) : std::nullopt;
}

}  // namespace

RolloutRun::RolloutRun(Observer& observer, Rollout rollout, RolloutReport& report)
    : observer_(observer), rollout_(std::move(rollout)), report_(report) {
  rollout_.run = random_run();
}

bool RolloutRun::is_interrupted() const {
  pollfd file = {.fd = signals_.ending(), .events = POLLIN, .revents = 0};
  return poll(&file, 1, 0) > 0;
}

// At the broker for other operators, and in a file in case that loses it.
void RolloutRun::save() {
  rollout_.updated = std::time(nullptr);
  const std::string text = fleet::payload_of(json_of(rollout_));
  observer_.keep(topic_of(rollout_.id), text);
  write_file(text);
  next_save_ = Deadline::after(text.size() > kLarge ? kLargeSaveMs : kSaveMs);
}

void RolloutRun::write_file(const std::string& text) {
  std::string cause;
  try {
    const std::string file = file_of(rollout_.id);
    if (runtime::write_whole_file(file.c_str(), text, kMode)) return;
    cause = "cannot write '" + file + "': " + std::strerror(errno);
  } catch (const Failure& error) {
    cause = error.what();
  }
  if (!std::exchange(has_warned_, true)) {
    report_.warning(cause + "; only the broker keeps this rollout");
  }
}

// Often, in all that takes long.
void RolloutRun::look_after() {
  if (stalled_.passed()) observer_.catch_up();
  stalled_ = Deadline::after(kStalledMs);
  if (observer_.is_connected() != was_connected_) {
    was_connected_ = !was_connected_;
    report_.connection(was_connected_, observer_.cause());
  }
  if (next_save_.passed()) save();
}

void RolloutRun::end(const char* state) {
  rollout_.state = state;
  save();
  const bool is_interrupted_now = is_interrupted();
  if (observer_.is_connected() || !is_interrupted_now) {
    observer_.flush(is_interrupted_now ? kInterruptedFlushMs : kFlushMs);
  } else {
    report_.warning(
        "the broker cannot be reached and does not know that yet: only this user can "
        "resume the rollout, from '" +
        file_of(rollout_.id) + "'");
  }
  report_.end(rollout_);
}

// Mostly because the broker cannot be reached any more.
void RolloutRun::end_at_failure() {
  if (rollout_.state == kRunning) rollout_.state = kInterrupted;
  save();
  try {
    if (observer_.is_connected()) observer_.flush(kInterruptedFlushMs);
  } catch (const Failure&) {
    // Whoever resumes it sees that nobody carries it out.
  }
  report_.end(rollout_);
}

// Nobody is asked before the broker has shown that the rollout is this run's.
void RolloutRun::claim() {
  observer_.claim(rollout_.id, rollout_.run);
  save();
  const Deadline until = Deadline::after(kFlushMs);
  while (!observer_.has_claim()) {
    (void)observer_.wait(Deadline::sooner(until, Deadline::after(kLookMs)));
    if (is_interrupted()) throw Failure(EINTR, "interrupted before any board was asked");
    if (until.passed()) {
      throw Failure(ETIMEDOUT,
                    "the broker does not send the rollout back; may this user or "
                    "certificate read and write " +
                        std::string(fleet::kRollouts) + "+?");
    }
  }
}

void RolloutRun::begin() {
  rollout_.state = kRunning;
  for (Wave& wave : rollout_.waves) {
    for (auto& [name, board] : wave) {
      const bool is_open = board.state == kAsked || board.state == kDone;
      if (!is_open) board.state = kWaiting;
    }
  }
  claim();
  report_.begin(rollout_);
}

ExitStatus RolloutRun::run() {
  try {
    begin();
    const bool is_done = run_waves();
    end(is_done ? kFinished : has_failed_too_often() ? kStopped : kInterrupted);
    return is_done && failures_ == 0 ? client::kDone : client::kFailed;
  } catch (const Failure& error) {
    // Whoever carries it out now keeps its record.
    if (error.code() != EBUSY) end_at_failure();
    throw;
  }
}

// False when the rollout must not go on.
bool RolloutRun::run_waves() {
  for (size_t number = 0; number < rollout_.waves.size(); ++number) {
    const bool is_last = number + 1 == rollout_.waves.size();
    if (!run_wave(number) || (!is_last && !pause())) return false;
  }
  return true;
}

// False when the rollout must not go on.
bool RolloutRun::run_wave(size_t number) {
  Wave& wave = rollout_.waves[number];
  std::vector<std::string> boards;
  for (const auto& [name, board] : wave) {
    if (board.state != kDone) boards.push_back(name);
  }
  if (boards.empty()) return true;
  report_.begin_wave(rollout_, number, boards.size());
  Inquiry inquiry(
      observer_,
      {.id_for =
           [&](const std::string& board) {
             wave[board].state = kAsked;
             return rollout_.id + "." + std::to_string(wave[board].tries);
           },
       .command = "install",
       .arguments = {{"url", rollout_.url},
                     {"sha256", rollout_.sha256},
                     {"size", rollout_.size},
                     {"force", rollout_.is_forced}},
       .seconds = rollout_.answer_seconds,
       .at_once = kAtOnce},
      boards,
      {.ended = [&](const BoardOutcome& outcome) { take(outcome, wave[outcome.board]); },
       .progress = [&](const std::string& board,
                       const Json& progress) { report_.progress(board, progress); },
       .presence = [&](const std::string& board,
                       bool is_online) { report_.presence(board, is_online); }});
  while (inquiry.step(Deadline::after(kLookMs))) {
    look_after();
    if (is_interrupted()) return false;
    if (has_failed_too_often()) inquiry.stop();
  }
  save();
  return !has_failed_too_often();
}

void RolloutRun::take(const BoardOutcome& outcome, RolloutBoard& board) {
  board.state = outcome.state;
  board.message = outcome.is_done() ? "" : outcome.message;
  // A board that has not answered may still be at work: it is asked for the same again.
  if (outcome.state != kNoAnswer) ++board.tries;
  if (!outcome.is_done()) ++failures_;
  report_.board(outcome);
}

bool RolloutRun::pause() {
  if (rollout_.pause_seconds <= 0) return true;
  report_.pause(rollout_.pause_seconds);
  const Deadline until = Deadline::after_seconds(rollout_.pause_seconds);
  while (!until.passed()) {
    (void)observer_.wait(Deadline::sooner(until, Deadline::after(kLookMs)));
    look_after();
    if (is_interrupted()) return false;
  }
  return true;
}

Rollout find_rollout(Observer& observer, const std::string& id) {
  if (!fleet::is_name(id)) throw Failure(EINVAL, "'" + id + "' is not the id of a rollout");
  const std::optional<Rollout> kept = kept_at_broker(observer, id);
  const std::optional<Rollout> own = kept_in_file(id);
  if (!kept && !own) {
    throw Failure(ENOENT,
                  "no rollout '" + id + "': 'tarvio-fleet history' shows those that the broker has",
                  client::kNoMatch);
  }
  // The clocks of two operators tell nothing of who came later, but a record that changes does.
  const bool may_run = kept && kept->state == kRunning;
  const Deadline until = Deadline::after(kRunningMs);
  while (may_run && !until.passed()) {
    (void)observer.wait(until);
    const std::optional<Rollout> now = kept_at_broker(observer, id);
    if (!now || now->updated == kept->updated) continue;
    if (now->state != kRunning) return *now;
    throw Failure(EBUSY,
                  "rollout '" + id + "' is carried out by '" + now->operator_name + "' right now");
  }
  return !own || (kept && kept->updated > own->updated) ? *kept : *own;
}

void forget_rollout(Observer& observer, const std::string& id) {
  // A record that cannot be read is nobody's.
  const bool is_unreadable = observer.rollouts().contains(id) && !kept_at_broker(observer, id);
  if (!is_unreadable) (void)find_rollout(observer, id);
  observer.keep(topic_of(id), "");
  observer.flush(kFlushMs);
  const std::string file = file_of(id);
  if (unlink(file.c_str()) != 0 && errno != ENOENT) {
    throw Failure::of_system("cannot remove '" + file + "'");
  }
}

}  // namespace fleet_tool
