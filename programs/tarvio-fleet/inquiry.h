// A request to many boards: a bounded number at a time, each until it has answered.
#ifndef TARVIO_FLEET_TOOL_INQUIRY_H
#define TARVIO_FLEET_TOOL_INQUIRY_H

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/deadline.h"
#include "observer.h"

namespace fleet_tool {

// What came of one board.
struct BoardOutcome {
  std::string board;
  std::string state;  // of its answer, or "no answer"
  std::string message;
  Json answer;  // whole; null for none

  [[nodiscard]] bool is_done() const { return state == "done"; }
  // For people.
  [[nodiscard]] std::string words() const;
};

inline constexpr char kNoAnswer[] = "no answer";

// What is asked of each.
struct Question {
  // The id of the request to a board, which runs none twice.
  std::function<std::string(const std::string& board)> id_for;
  std::string command;
  Json arguments;
  double seconds = 0;  // for an answer
  size_t at_once = 0;
};

class Inquiry : public Listener {
 public:
  // Who is told of what. Only the first is needed.
  struct Reports {
    std::function<void(const BoardOutcome&)> ended;  // for each board, once
    std::function<void(const std::string& board, const Json& progress)> progress = {};
    // A board that was asked has gone offline, or come back.
    std::function<void(const std::string& board, bool is_online)> presence = {};
  };

  Inquiry(Observer& observer, Question question, std::vector<std::string> boards, Reports reports);
  Inquiry(const Inquiry&) = delete;
  Inquiry& operator=(const Inquiry&) = delete;
  ~Inquiry() override;

  // Goes on until the deadline, a message or the end. False when all have answered.
  bool step(const tarvio::Deadline& until);

  // Asks no further board.
  void stop() { waiting_.clear(); }

  void on_answer(const std::string& board, const Json& answer) override;
  void on_progress(const std::string& board, const Json& progress) override;

 private:
  struct Asked {
    tarvio::Deadline given_up;
    tarvio::Deadline again;
    bool is_gone = false;
  };

  void ask(const std::string& board, Asked& asked) const;
  void ask_next();
  void look_after();
  [[nodiscard]] bool is_online(const std::string& board) const;
  void end(const std::string& board, const BoardOutcome& outcome);

  Observer& observer_;
  const Question question_;
  const Reports reports_;
  std::deque<std::string> waiting_;
  std::map<std::string, Asked> asked_;
  tarvio::Deadline next_look_ = tarvio::Deadline::after(0);
};

// A new id.
std::string new_id();

}  // namespace fleet_tool

#endif
