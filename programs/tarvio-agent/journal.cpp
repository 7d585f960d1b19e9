#include "journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "base/pipe.h"

namespace agent {

namespace {

constexpr size_t kMostIds = 1000;
constexpr size_t kMostLines = 4 * kMostIds;
constexpr size_t kMaxMessageBytes = 200;
constexpr mode_t kMode = 0600;

constexpr char kBegun[] = "begun";
constexpr char kFinished[] = "finished";
constexpr char kDelivered[] = "delivered";

[[noreturn]] void fail(const std::string& file) {
  throw std::runtime_error("cannot write '" + file + "': " + std::strerror(errno));
}

// JSON has no bytes.
std::string hex_of(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += {kDigits[value / 16], kDigits[value % 16]};
  }
  return text;
}

std::string bytes_of(const std::string& hex) {
  std::string bytes;
  for (size_t at = 0; at + 1 < hex.size(); at += 2) {
    bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
  }
  return bytes;
}

// What is said again to who asks again.
std::string without_result(const std::string& answer) {
  Json json = Json::parse(answer);
  json.erase("result");
  const std::string message = json.value("message", "");
  if (message.size() > kMaxMessageBytes) json["message"] = message.substr(0, kMaxMessageBytes);
  return client::line_of(json);
}

}  // namespace

Journal::Journal(const std::string& file) : file_(file) {
  std::ifstream stream(file, std::ios::binary);
  if (stream) read({std::istreambuf_iterator<char>(stream), {}});
  if (!stream && errno != ENOENT) {
    throw std::runtime_error("cannot read '" + file + "': " + std::strerror(errno));
  }
  rewrite();
}

const JournalEntry* Journal::find(const std::string& id) const {
  const auto found = entries_.find(id);
  return found == entries_.end() ? nullptr : &found->second;
}

std::vector<std::string> Journal::ids_in(JournalEntry::State state) const {
  std::vector<std::string> ids;
  for (const std::string& id : order_) {
    if (entries_.at(id).state == state) ids.push_back(id);
  }
  return ids;
}

void Journal::begin(const std::string& id, const std::string& payload,
                    const ReturnAddress& address) {
  append({{kBegun, id},
          {"payload", payload},
          {"topic", address.topic},
          {"correlation", hex_of(address.correlation)}});
}

void Journal::finish(const std::string& id, const Json& answer) {
  append({{kFinished, id}, {"answer", client::line_of(answer)}});
}

void Journal::deliver(const std::string& id) { append({{kDelivered, id}}); }

void Journal::read(const std::string& text) {
  for (std::string_view rest = text; !rest.empty();) {
    const size_t end = rest.find('\n');
    if (end == std::string_view::npos) return;
    const Json line = Json::parse(rest.substr(0, end), nullptr, false);
    if (line.is_object()) apply(line);
    rest.remove_prefix(end + 1);
  }
}

void Journal::apply(const Json& line) {
  if (line.contains(kBegun)) {
    const std::string id = line[kBegun];
    order_.push_back(id);
    entries_[id] = {.payload = line.value("payload", ""),
                    .address = {.topic = line.value("topic", ""),
                                .correlation = bytes_of(line.value("correlation", ""))}};
  } else if (line.contains(kFinished)) {
    JournalEntry& entry = entries_[line[kFinished].get<std::string>()];
    entry.state = JournalEntry::State::kAnswered;
    entry.payload.clear();
    entry.answer = line.value("answer", "");
  } else if (line.contains(kDelivered)) {
    JournalEntry& entry = entries_[line[kDelivered].get<std::string>()];
    entry.state = JournalEntry::State::kClosed;
    entry.answer = without_result(entry.answer);
  }
}

void Journal::append(const Json& line) {
  std::string text = client::line_of(line);
  const off_t end = lseek(fd_.get(), 0, SEEK_END);
  if (!tarvio::write_all(fd_.get(), text) || fdatasync(fd_.get()) != 0) {
    const tarvio::ErrnoKeeper keeper;
    // Else the next line would become part of this one.
    (void)ftruncate(fd_.get(), end);
    fail(file_);
  }
  apply(line);
  if (++appended_ >= kMostLines) rewrite();
}

// With the last ids only.
void Journal::rewrite() {
  while (order_.size() > kMostIds &&
         entries_.at(order_.front()).state == JournalEntry::State::kClosed) {
    entries_.erase(order_.front());
    order_.pop_front();
  }
  std::string text;
  for (const std::string& id : order_) {
    const JournalEntry& entry = entries_.at(id);
    text += client::line_of({{kBegun, id},
                             {"payload", entry.payload},
                             {"topic", entry.address.topic},
                             {"correlation", hex_of(entry.address.correlation)}});
    if (entry.state == JournalEntry::State::kRunning) continue;
    text += client::line_of({{kFinished, id}, {"answer", entry.answer}});
    if (entry.state == JournalEntry::State::kClosed) {
      text += client::line_of({{kDelivered, id}});
    }
  }
  const std::string fresh = file_ + ".new";
  tarvio::Fd fd(open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, kMode));
  if (!fd.valid() || !tarvio::write_all(fd.get(), text) || fsync(fd.get()) != 0 ||
      rename(fresh.c_str(), file_.c_str()) != 0) {
    fail(fresh);
  }
  fd_ = std::move(fd);
  appended_ = 0;
}

}  // namespace agent
