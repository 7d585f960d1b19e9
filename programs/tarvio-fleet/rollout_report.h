// What is printed of a rollout as it goes: lines for people, or a line of JSON for each event.
#ifndef TARVIO_FLEET_TOOL_ROLLOUT_REPORT_H
#define TARVIO_FLEET_TOOL_ROLLOUT_REPORT_H

#include <map>
#include <string>

#include "inquiry.h"
#include "rollout.h"

namespace fleet_tool {

class RolloutReport {
 public:
  RolloutReport(bool is_json, bool is_quiet);

  void begin(const Rollout& rollout);
  void begin_wave(const Rollout& rollout, size_t number, size_t boards);
  void board(const BoardOutcome& outcome);
  // Of a board, or of the transfer before the rollout; a step and how many bytes of it are done.
  void progress(const std::string& who, const Json& progress);
  // Of a board that was asked and has not answered.
  void presence(const std::string& board, bool is_online);
  // To the broker; the cause where it is lost.
  void connection(bool is_there, const std::string& cause);
  void warning(const std::string& text);
  void pause(double seconds);
  void end(const Rollout& rollout);

 private:
  void lines(const std::string& text, const Json& event);
  void line(const std::string& text, const Json& event);
  void draw();
  void erase();

  const bool is_json_;
  const bool is_screen_;  // where a last line says how far it is
  size_t wave_boards_ = 0;
  size_t wave_ended_ = 0;
  std::string last_progress_;
  bool is_drawn_ = false;
};

}  // namespace fleet_tool

#endif
