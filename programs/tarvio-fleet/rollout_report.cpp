#include "rollout_report.h"

#include "expression.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace fleet_tool {

namespace {

std::string boards_words(size_t count) {
  return std::to_string(count) + (count == 1 ? " board" : " boards");
}

}  // namespace

RolloutReport::RolloutReport(bool is_json, bool is_quiet)
    : is_json_(is_json), is_screen_(!is_json && !is_quiet && client::is_screen()) {}

void RolloutReport::lines(const std::string& text, const Json& event) {
  erase();
  client::print(is_json_ ? client::line_of(event) : text);
  draw();
}

void RolloutReport::line(const std::string& text, const Json& event) { lines(text + "\n", event); }

void RolloutReport::erase() {
  if (is_drawn_) client::print("\r\x1b[K");
  is_drawn_ = false;
}

void RolloutReport::draw() {
  if (!is_screen_) return;
  std::string text;
  if (wave_boards_ > 0) {
    text = std::to_string(wave_ended_) + " of " + boards_words(wave_boards_);
    if (!last_progress_.empty()) text += "; ";
  }
  text += last_progress_;
  if (text.empty()) return;
  client::print(client::shortened(client::printable(text), client::screen_size().columns - 1));
  is_drawn_ = true;
}

void RolloutReport::begin(const Rollout& rollout) {
  last_progress_.clear();
  std::string text = "rollout " + rollout.id + ": " + boards_words(rollout.board_count()) + " in " +
                     std::to_string(rollout.waves.size()) +
                     (rollout.waves.size() == 1 ? " wave" : " waves") + "\n";
  if (!rollout.offline.empty()) text += offline_words(rollout.offline) + "\n";
  lines(text, {{"event", "rollout"},
               {"id", rollout.id},
               {"boards", rollout.board_count()},
               {"waves", rollout.waves.size()},
               {"offline", rollout.offline}});
}

void RolloutReport::begin_wave(const Rollout& rollout, size_t number, size_t boards) {
  wave_boards_ = boards;
  wave_ended_ = 0;
  last_progress_.clear();
  line("wave " + std::to_string(number + 1) + " of " + std::to_string(rollout.waves.size()) + ": " +
           boards_words(boards),
       {{"event", "wave"}, {"wave", number + 1}, {"boards", boards}});
}

void RolloutReport::board(const BoardOutcome& outcome) {
  ++wave_ended_;
  line(outcome.words(), {{"event", "board"},
                         {"board", outcome.board},
                         {"state", outcome.state},
                         {"message", outcome.message}});
}

void RolloutReport::progress(const std::string& who, const Json& progress) {
  if (!is_screen_) return;
  last_progress_ = who + ": " + text_in(progress, "step");
  if (progress.contains("done") && progress["done"].is_number_unsigned()) {
    last_progress_ += " " + client::size_words(progress["done"]);
  }
  erase();
  draw();
}

void RolloutReport::presence(const std::string& board, bool is_online) {
  line(client::printable(board) +
           (is_online ? ": online again" : ": offline; its answer may come later"),
       {{"event", "presence"}, {"board", board}, {"online", is_online}});
}

void RolloutReport::connection(bool is_there, const std::string& cause) {
  if (is_there) {
    line("connected to the broker again", {{"event", "connection"}, {"connected", true}});
  } else {
    line(client::printable(cause) + "; trying again",
         {{"event", "connection"}, {"connected", false}, {"message", cause}});
  }
}

void RolloutReport::warning(const std::string& text) {
  erase();
  client::complain(text);
  draw();
}

void RolloutReport::pause(double seconds) {
  wave_boards_ = 0;
  last_progress_.clear();
  line("pause of " + std::to_string(static_cast<int>(seconds)) + " s",
       {{"event", "pause"}, {"seconds", seconds}});
}

void RolloutReport::end(const Rollout& rollout) {
  wave_boards_ = 0;
  last_progress_.clear();
  const auto failures = rollout.failures();
  const size_t waiting = rollout.count_of(kWaiting) + rollout.count_of(kAsked);
  std::string text = "rollout " + rollout.id + ": " + rollout.state + ", " +
                     std::to_string(rollout.count_of(kDone)) + " of " +
                     boards_words(rollout.board_count()) + " done";
  if (!failures.empty()) text += ", " + std::to_string(failures.size()) + " failed";
  if (waiting > 0) text += ", " + std::to_string(waiting) + " not asked or without an answer";
  text += "\n" + failure_lines(rollout);
  if (rollout.left_out > 0) {
    text += boards_words(rollout.left_out) + (rollout.left_out == 1
                                                  ? " is in no wave and was not asked\n"
                                                  : " are in no wave and were not asked\n");
  }
  if (rollout.state != kFinished) {
    text += "Continue with 'tarvio-fleet resume " + rollout.id +
            "', which asks those again that have failed.\n";
  }
  Json failed = Json::array();
  for (const auto& [name, board] : failures) {
    failed.push_back({{"board", name}, {"state", board.state}, {"message", board.message}});
  }
  lines(text, {{"event", "end"},
               {"id", rollout.id},
               {"state", rollout.state},
               {"done", rollout.count_of(kDone)},
               {"failed", failures.size()},
               {"waiting", waiting},
               {"left_out", rollout.left_out},
               {"failures", std::move(failed)}});
}

}  // namespace fleet_tool
