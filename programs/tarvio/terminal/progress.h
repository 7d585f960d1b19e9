// How far the work on each area, or on a file, is.
#ifndef TARVIO_CLIENT_TERMINAL_PROGRESS_H
#define TARVIO_CLIENT_TERMINAL_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

namespace client {

// One line for each area: redrawn in its place on a terminal; elsewhere a new line now and then,
// and one at the end.
class Progress {
 public:
  enum class Kind { kNone, kLines, kScreen };
  using Clock = std::chrono::steady_clock;

  explicit Progress(Kind kind) : kind_(kind) {}
  // Ends a line that is unfinished on the terminal.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // How often to call `at`, in milliseconds; -1 for never.
  [[nodiscard]] int tick_ms() const;

  void begin(const std::string& area);
  // What is done now, and how many bytes it is; 0 when that is not known.
  void step(const char* what, uint64_t bytes);
  // The same of what is mostly done at once: shown when it takes longer than that.
  void step_if_long(const char* what, uint64_t bytes);
  // How many of the bytes are done.
  void at(uint64_t bytes);
  // The area is done: what was, and how many bytes.
  void end(const char* what, uint64_t bytes);
  // Removes a line that is unfinished on the terminal.
  void clear();
  // The area is not done, for a reason that is reported elsewhere.
  void give_up();

 private:
  void show(const std::string& text);
  [[nodiscard]] double seconds_since(Clock::time_point begin) const;

  const Kind kind_;
  bool is_unfinished_ = false;
  std::string area_;
  const char* what_ = "";
  uint64_t bytes_ = 0;
  bool is_hidden_ = false;  // until it takes long
  Clock::time_point area_begin_;
  Clock::time_point step_begin_;
  Clock::time_point shown_;
};

// What standard output can show.
Progress::Kind progress_kind(bool quiet);

// "9 s", "3 min 05 s"
std::string time_words(double seconds);

// "47 %, 0.9 MiB of 1.9 MiB, 3.1 MiB/s, 1 s left"; rate and time are left out until they are
// known.
std::string progress_words(uint64_t done, uint64_t bytes, double seconds);

}  // namespace client

#endif
