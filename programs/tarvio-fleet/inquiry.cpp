#include "inquiry.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <random>
#include <string_view>
#include <utility>

#include "terminal/printable_text.h"

namespace fleet_tool {

namespace {

using tarvio::Deadline;

constexpr int kLookMs = 200;
// A board that has answered already answers again, and one that works on it does not begin again.
constexpr int kAgainMs = 15'000;
constexpr double kLongestSeconds = 86'400;  // for which an agent takes a request
constexpr std::array<std::string_view, 5> kStates = {"done", "failed", "refused", "expired",
                                                     "interrupted"};

}  // namespace

std::string BoardOutcome::words() const {
  return client::printable(board + ": " + state + (is_done() ? "" : ": " + message));
}

std::string new_id() {
  std::random_device random;
  const std::time_t now = std::time(nullptr);
  tm parts = {};
  std::string text(32, '\0');
  text.resize(gmtime_r(&now, &parts) == nullptr
                  ? 0
                  : std::strftime(text.data(), text.size(), "%Y%m%d-%H%M%S-", &parts));
  constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz";
  for (int count = 0; count < 4; ++count) text += kLetters[random() % (sizeof kLetters - 1)];
  return text;
}

Inquiry::Inquiry(Observer& observer, Question question, std::vector<std::string> boards,
                 Reports reports)
    : observer_(observer),
      question_(std::move(question)),
      reports_(std::move(reports)),
      waiting_(boards.begin(), boards.end()) {
  observer_.set_listener(this);
  ask_next();
}

Inquiry::~Inquiry() { observer_.set_listener(nullptr); }

void Inquiry::ask(const std::string& board, Asked& asked) const {
  const double left = static_cast<double>(asked.given_up.remaining_ms()) / 1000 + 1;
  const double seconds =
      asked.given_up.is_set() ? std::min(left, kLongestSeconds) : kLongestSeconds;
  observer_.ask(board,
                {{"id", question_.id_for(board)},
                 {"command", question_.command},
                 {"arguments", question_.arguments},
                 {"expires_in", seconds}},
                seconds);
  asked.again = Deadline::after(kAgainMs);
}

void Inquiry::ask_next() {
  while (!waiting_.empty() && asked_.size() < question_.at_once) {
    const std::string board = waiting_.front();
    waiting_.pop_front();
    Asked asked = {.given_up = Deadline::after_seconds(question_.seconds),
                   .again = Deadline::never()};
    ask(board, asked);
    asked_.emplace(board, asked);
  }
}

bool Inquiry::is_online(const std::string& board) const {
  const auto known = observer_.boards().find(board);
  return known != observer_.boards().end() && known->second.is_online;
}

// Now and then, not with each message: there may be a thousand of both.
void Inquiry::look_after() {
  if (!next_look_.passed()) return;
  next_look_ = Deadline::after(kLookMs);
  std::vector<std::string> late;
  for (auto& [board, asked] : asked_) {
    const bool is_gone = !is_online(board);
    // The broker keeps what it was asked meanwhile: more of the same would only fill its queue.
    if (asked.is_gone && !is_gone) asked.again = Deadline::after(0);
    if (reports_.presence && is_gone != asked.is_gone) reports_.presence(board, !is_gone);
    asked.is_gone = is_gone;
    if (asked.given_up.passed()) {
      late.push_back(board);
    } else if (!is_gone && asked.again.passed()) {
      ask(board, asked);
    }
  }
  for (const std::string& board : late) {
    const bool is_gone = asked_.at(board).is_gone;
    end(board, {.board = board,
                .state = kNoAnswer,
                .message = is_gone ? "it has gone offline" : "it has not answered in time",
                .answer = nullptr});
  }
}

void Inquiry::end(const std::string& board, const BoardOutcome& outcome) {
  asked_.erase(board);
  reports_.ended(outcome);
}

bool Inquiry::step(const Deadline& until) {
  (void)observer_.wait(Deadline::sooner(until, next_look_));
  look_after();
  ask_next();
  return !asked_.empty();
}

void Inquiry::on_answer(const std::string& board, const Json& answer) {
  if (!asked_.contains(board) || text_in(answer, "id") != question_.id_for(board)) return;
  const std::string state = text_in(answer, "state");
  const bool is_known = std::find(kStates.begin(), kStates.end(), state) != kStates.end();
  end(board, {.board = board,
              .state = is_known ? state : "failed",
              .message = text_in(answer, "message"),
              .answer = answer});
}

void Inquiry::on_progress(const std::string& board, const Json& progress) {
  const auto asked = asked_.find(board);
  if (asked == asked_.end()) return;
  asked->second.again = Deadline::after(kAgainMs);
  if (reports_.progress) reports_.progress(board, progress);
}

}  // namespace fleet_tool
