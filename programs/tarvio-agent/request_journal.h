// What was asked of the board and what came of it, on the disk before anything is done: no request
// is run twice, and none is forgotten.
#ifndef TARVIO_AGENT_REQUEST_JOURNAL_H
#define TARVIO_AGENT_REQUEST_JOURNAL_H

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/owners.h"
#include "terminal/json.h"

namespace agent {

using client::Json;

// Where an answer goes.
struct ReturnAddress {
  std::string topic;
  std::string correlation;

  bool operator==(const ReturnAddress&) const = default;
};

struct JournalEntry {
  enum class State { kWaiting, kRunning, kAnswered, kClosed };
  State state = State::kWaiting;
  uint64_t work = 0;                       // what is asked, in short
  std::string payload = {};                // of the request, until it is finished
  std::vector<ReturnAddress> askers = {};  // until it is finished, and delivered to all of them
  std::string answer = {};                 // whole until it is delivered, then without its result
  bool is_recorded = true;                 // the answer, on the disk
};

class Journal {
 public:
  // Reads what is there, as far as it is whole. Throws std::runtime_error when the file cannot be
  // used; a full disk is no reason.
  explicit Journal(const std::string& file);

  // How many lines were left out, as a power cut may leave them.
  [[nodiscard]] size_t damaged_lines() const { return damaged_lines_; }

  // Null for an id that is not known, or not any more: the last 1,000 are.
  [[nodiscard]] const JournalEntry* find(const std::string& id) const;
  // In the order in which they have come.
  [[nodiscard]] std::vector<std::string> ids_in(JournalEntry::State state) const;

  // All are on the disk when they return. They throw std::runtime_error when that failed: nothing
  // has changed then, except that an answer is known until the end of this process.
  void add(const std::string& id, const std::string& payload, uint64_t work,
           const ReturnAddress& asker);
  void start(const std::string& id);
  void add_asker(const std::string& id, const ReturnAddress& asker);
  void finish(const std::string& id, const Json& answer);
  void deliver(const std::string& id);

 private:
  // Of the file, unless what must be kept has half of that.
  static constexpr size_t kMostBytes = size_t{1} << 20U;

  void open();
  void read(std::string_view text);
  // False for a line that says nothing.
  bool apply(const Json& line);
  bool apply_to(JournalEntry& entry, const Json& line);
  void append(const Json& line);
  void write(const std::string& text);
  [[nodiscard]] bool is_long() const;
  void drop_oldest();
  void shorten();
  void keep_reserve() const;
  [[nodiscard]] std::string text() const;

  const std::string file_;
  tarvio::Fd fd_;
  std::deque<std::string> order_;
  std::map<std::string, JournalEntry> entries_;
  size_t lines_ = 0;  // in the file
  size_t bytes_ = 0;
  size_t most_bytes_ = kMostBytes;
  size_t damaged_lines_ = 0;
};

}  // namespace agent

#endif
