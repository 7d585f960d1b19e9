// What was asked of the board and what came of it, on the disk before anything is done: no request
// is run twice, and none is forgotten.
#ifndef TARVIO_AGENT_JOURNAL_H
#define TARVIO_AGENT_JOURNAL_H

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "base/owners.h"
#include "terminal/json.h"

namespace agent {

using client::Json;

// Where an answer goes.
struct ReturnAddress {
  std::string topic;
  std::string correlation;
};

struct JournalEntry {
  enum class State { kRunning, kAnswered, kClosed };
  State state = State::kRunning;
  std::string payload;  // of the request, until it is finished
  ReturnAddress address;
  std::string answer = {};  // whole until it is delivered, then without its result
};

class Journal {
 public:
  // Reads what is there; a last line that a power cut has left incomplete does not count. Throws
  // std::runtime_error when the file cannot be used.
  explicit Journal(const std::string& file);

  // Null for an id that is not known, or not any more: the last 1,000 are.
  [[nodiscard]] const JournalEntry* find(const std::string& id) const;
  // In the order in which they have come.
  [[nodiscard]] std::vector<std::string> ids_in(JournalEntry::State state) const;

  // All are on the disk when they return. They throw std::runtime_error when that failed.
  void begin(const std::string& id, const std::string& payload, const ReturnAddress& address);
  void finish(const std::string& id, const Json& answer);
  void deliver(const std::string& id);

 private:
  void read(const std::string& text);
  void apply(const Json& line);
  void append(const Json& line);
  void rewrite();

  const std::string file_;
  tarvio::Fd fd_;
  std::deque<std::string> order_;
  std::map<std::string, JournalEntry> entries_;
  size_t appended_ = 0;  // lines since the file was written whole
};

}  // namespace agent

#endif
