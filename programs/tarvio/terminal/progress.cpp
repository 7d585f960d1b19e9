#include "terminal/progress.h"

#include <algorithm>
#include <utility>

#include "terminal/output.h"
#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace client {

namespace {

constexpr std::chrono::milliseconds kScreenTick{250};
constexpr std::chrono::milliseconds kLinesTick{2000};
constexpr std::chrono::seconds kBetweenLines{10};
constexpr std::chrono::seconds kLong{1};
constexpr double kMinSeconds = 0.05;  // before that, a rate says nothing
constexpr char kClearLine[] = "\r\x1b[K";

std::string rate_words(uint64_t bytes, double seconds) {
  if (seconds < kMinSeconds) return "";
  return ", " + size_words(static_cast<uint64_t>(static_cast<double>(bytes) / seconds)) + "/s";
}

}  // namespace

Progress::Kind progress_kind(bool quiet) {
  if (quiet) return Progress::Kind::kNone;
  return is_screen() ? Progress::Kind::kScreen : Progress::Kind::kLines;
}

std::string time_words(double seconds) {
  auto whole = static_cast<uint64_t>(seconds);
  if (static_cast<double>(whole) < seconds) ++whole;
  if (whole < 60) return std::to_string(whole) + " s";
  const std::string rest = std::to_string(whole % 60);
  return std::to_string(whole / 60) + " min " + (rest.size() == 1 ? "0" : "") + rest + " s";
}

std::string progress_words(uint64_t done, uint64_t bytes, double seconds) {
  done = std::min(done, bytes);
  std::string words = std::to_string(bytes == 0 ? 0 : done * 100 / bytes) + " %, " +
                      size_words(done) + " of " + size_words(bytes);
  if (done == 0 || seconds < kMinSeconds) return words;
  const double left = seconds * static_cast<double>(bytes - done) / static_cast<double>(done);
  return words + rate_words(done, seconds) + ", " + time_words(left) + " left";
}

Progress::~Progress() { give_up(); }

int Progress::tick_ms() const {
  switch (kind_) {
    case Kind::kNone:
      return -1;
    case Kind::kLines:
      return static_cast<int>(kLinesTick.count());
    default:
      return static_cast<int>(kScreenTick.count());
  }
}

void Progress::begin(const std::string& area) {
  give_up();
  area_ = printable(area);
  area_begin_ = shown_ = Clock::now();
}

void Progress::step(const char* what, uint64_t bytes) {
  step_if_long(what, bytes);
  is_hidden_ = false;
  if (kind_ == Kind::kScreen) show(area_ + ": " + what);
}

void Progress::step_if_long(const char* what, uint64_t bytes) {
  what_ = what;
  bytes_ = bytes;
  is_hidden_ = true;
  step_begin_ = Clock::now();
}

void Progress::at(uint64_t bytes) {
  const Clock::time_point now = Clock::now();
  is_hidden_ = is_hidden_ && now - step_begin_ < kLong;
  const bool is_due = !is_hidden_ && (kind_ == Kind::kScreen ||
                                      (kind_ == Kind::kLines && now - shown_ >= kBetweenLines));
  if (!is_due) return;
  shown_ = now;
  const std::string words =
      bytes_ == 0 ? "" : ' ' + progress_words(bytes, bytes_, seconds_since(step_begin_));
  show(area_ + ": " + what_ + words);
}

void Progress::end(const char* what, uint64_t bytes) {
  if (kind_ == Kind::kNone) return;
  const double taken = seconds_since(area_begin_);
  clear();
  (void)print(area_ + ": " + what + ' ' + size_words(bytes) + " in " + time_words(taken) +
              rate_words(bytes, taken) + '\n');
}

void Progress::clear() {
  if (std::exchange(is_unfinished_, false)) (void)print(kClearLine);
}

void Progress::give_up() {
  if (is_unfinished_) (void)print("\n");
  is_unfinished_ = false;
}

void Progress::show(const std::string& text) {
  if (kind_ != Kind::kScreen) {
    (void)print(text + '\n');
    return;
  }
  is_unfinished_ = true;
  // A line that wraps could not be redrawn in its place.
  (void)print(kClearLine + shortened(text, screen_size().columns - 1));
}

double Progress::seconds_since(Clock::time_point begin) const {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

}  // namespace client
