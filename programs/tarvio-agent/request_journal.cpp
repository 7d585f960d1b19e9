#include "request_journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>
#include <random>
#include <stdexcept>

#include "base/pipe.h"

namespace agent {

namespace {

using State = JournalEntry::State;

constexpr size_t kMostIds = 1000;
constexpr size_t kMostLines = 5 * kMostIds;
constexpr size_t kMaxMessageBytes = 200;
// For the answers to all that may wait, without their results.
constexpr off_t kReserveBytes = 32768;
constexpr mode_t kMode = 0600;

constexpr char kAsked[] = "asked";
constexpr char kStarted[] = "started";
constexpr char kAskedAgain[] = "asked_again";
constexpr char kFinished[] = "finished";
constexpr char kDelivered[] = "delivered";

[[noreturn]] void fail(const std::string& what, const std::string& file) {
  throw std::runtime_error("cannot " + what + " '" + file + "': " + std::strerror(errno));
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

std::optional<std::string> bytes_of(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (; !hex.empty(); hex.remove_prefix(2)) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(hex.data(), hex.data() + 2, value, 16);
    if (error != std::errc() || end != hex.data() + 2) return std::nullopt;
    bytes += static_cast<char>(value);
  }
  return bytes;
}

std::optional<std::string> text_in(const Json& line, const char* name) {
  const auto found = line.find(name);
  if (found == line.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

std::optional<ReturnAddress> asker_in(const Json& line) {
  const std::optional<std::string> topic = text_in(line, "topic");
  const std::optional<std::string> correlation =
      bytes_of(text_in(line, "correlation").value_or(""));
  if (!topic || !correlation) return std::nullopt;
  return ReturnAddress{.topic = *topic, .correlation = *correlation};
}

Json line_of_asker(const char* key, const std::string& id, const ReturnAddress& asker) {
  return {{key, id}, {"topic", asker.topic}, {"correlation", hex_of(asker.correlation)}};
}

Json line_of_request(const std::string& id, const std::string& payload, uint64_t work,
                     const ReturnAddress& asker) {
  Json line = line_of_asker(kAsked, id, asker);
  line["payload"] = payload;
  line["work"] = work;
  return line;
}

// What is said again to who asks again.
std::string without_result(const std::string& answer) {
  Json json = Json::parse(answer, nullptr, false);
  if (!json.is_object()) return answer;
  json.erase("result");
  const std::string message = text_in(json, "message").value_or("");
  if (message.size() > kMaxMessageBytes) json["message"] = message.substr(0, kMaxMessageBytes);
  return client::line_of(json);
}

// A new name of a file is on the disk once its directory is.
void sync_directory_of(const std::string& file) {
  const tarvio::Fd directory(
      ::open(file.substr(0, file.rfind('/') + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.valid()) (void)fsync(directory.get());
}

std::string read_all(int fd, const std::string& file) {
  std::string text;
  char room[65536];
  ssize_t count = 0;
  while ((count = tarvio::read_some(fd, room)) > 0) text.append(room, static_cast<size_t>(count));
  if (count < 0) fail("read", file);
  return text;
}

}  // namespace

Journal::Journal(const std::string& file) : file_(file) {
  open();
  if (!fd_.valid()) return;
  const std::string text = read_all(fd_.get(), file_);
  const size_t whole = text.rfind('\n') + 1;  // 0 for none
  read(std::string_view(text).substr(0, whole));
  bytes_ = whole;
  if (whole < text.size()) {
    ++damaged_lines_;
    // Else the next line would become part of it.
    if (ftruncate(fd_.get(), static_cast<off_t>(whole)) != 0) fail("write", file_);
  }
  drop_oldest();
  if (is_long() || damaged_lines_ > 0) shorten();
}

// Without a descriptor where the disk is full: what comes is refused then, and tried again.
void Journal::open() {
  fd_.reset(::open(file_.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, kMode));
  if (!fd_.valid() && errno != ENOSPC && errno != EDQUOT) fail("open", file_);
  sync_directory_of(file_);
}

const JournalEntry* Journal::find(const std::string& id) const {
  const auto found = entries_.find(id);
  return found == entries_.end() ? nullptr : &found->second;
}

std::vector<std::string> Journal::ids_in(State state) const {
  std::vector<std::string> ids;
  for (const std::string& id : order_) {
    if (entries_.at(id).state == state) ids.push_back(id);
  }
  return ids;
}

void Journal::add(const std::string& id, const std::string& payload, uint64_t work,
                  const ReturnAddress& asker) {
  keep_reserve();
  append(line_of_request(id, payload, work, asker));
}

void Journal::start(const std::string& id) { append({{kStarted, id}}); }

void Journal::add_asker(const std::string& id, const ReturnAddress& asker) {
  append(line_of_asker(kAskedAgain, id, asker));
}

void Journal::finish(const std::string& id, const Json& answer) {
  const std::string text = client::line_of(answer);
  try {
    append({{kFinished, id}, {"answer", text}});
  } catch (const std::runtime_error&) {
    // That it was run must not be forgotten: what else is on the disk may be what it has made.
    (void)unlink((file_ + ".reserve").c_str());
    const Json line = {{kFinished, id}, {"answer", without_result(text)}};
    try {
      append(line);
    } catch (const std::runtime_error&) {
      (void)apply(line);
      entries_.at(id).is_recorded = false;
      throw;
    }
  }
}

void Journal::deliver(const std::string& id) {
  JournalEntry& entry = entries_.at(id);
  if (!entry.is_recorded) append({{kFinished, id}, {"answer", entry.answer}});
  entry.is_recorded = true;
  append({{kDelivered, id}});
}

void Journal::read(std::string_view text) {
  while (!text.empty()) {
    const size_t end = text.find('\n');
    if (!apply(Json::parse(text.substr(0, end), nullptr, false))) ++damaged_lines_;
    ++lines_;
    text.remove_prefix(end + 1);
  }
}

bool Journal::apply(const Json& line) {
  if (!line.is_object()) return false;
  if (const std::optional<std::string> id = text_in(line, kAsked)) {
    const std::optional<ReturnAddress> asker = asker_in(line);
    if (!asker || entries_.contains(*id)) return false;
    const auto work = line.find("work");
    entries_[*id] = {
        .work = work != line.end() && work->is_number_unsigned() ? work->get<uint64_t>() : 0,
        .payload = text_in(line, "payload").value_or(""),
        .askers = {*asker}};
    order_.push_back(*id);
    return true;
  }
  for (const char* key : {kStarted, kAskedAgain, kFinished, kDelivered}) {
    const std::optional<std::string> id = text_in(line, key);
    const auto found = id ? entries_.find(*id) : entries_.end();
    if (found != entries_.end()) return apply_to(found->second, line);
  }
  return false;
}

bool Journal::apply_to(JournalEntry& entry, const Json& line) {
  if (line.contains(kStarted)) {
    if (entry.state != State::kWaiting) return false;
    entry.state = State::kRunning;
  } else if (line.contains(kAskedAgain)) {
    const std::optional<ReturnAddress> asker = asker_in(line);
    if (!asker || entry.state > State::kRunning) return false;
    entry.askers.push_back(*asker);
  } else if (line.contains(kFinished)) {
    const std::optional<std::string> answer = text_in(line, "answer");
    if (!answer || !Json::parse(*answer, nullptr, false).is_object()) return false;
    entry.state = State::kAnswered;
    entry.payload.clear();
    entry.answer = *answer;
  } else {
    if (entry.state != State::kAnswered) return false;
    entry.state = State::kClosed;
    entry.askers.resize(1);
    entry.answer = without_result(entry.answer);
  }
  return true;
}

void Journal::append(const Json& line) {
  if (!fd_.valid()) open();
  const std::string text = client::line_of(line);
  write(text);
  (void)apply(line);
  ++lines_;
  bytes_ += text.size();
  if (is_long()) shorten();
}

void Journal::write(const std::string& text) {
  const off_t end = lseek(fd_.get(), 0, SEEK_END);
  if (end >= 0 && tarvio::write_all(fd_.get(), text) && fdatasync(fd_.get()) == 0) return;
  {
    const tarvio::ErrnoKeeper keeper;
    // Else the next line would become part of this one.
    if (end >= 0) (void)ftruncate(fd_.get(), end);
  }
  fail("write", file_);
}

bool Journal::is_long() const { return lines_ >= kMostLines || bytes_ >= most_bytes_; }

void Journal::drop_oldest() {
  for (auto at = order_.begin(); order_.size() > kMostIds && at != order_.end();) {
    const bool is_closed = entries_.at(*at).state == State::kClosed;
    if (is_closed) entries_.erase(*at);
    at = is_closed ? order_.erase(at) : at + 1;
  }
}

std::string Journal::text() const {
  std::string text;
  for (const std::string& id : order_) {
    const JournalEntry& entry = entries_.at(id);
    text += client::line_of(line_of_request(id, entry.payload, entry.work, entry.askers.front()));
    for (size_t at = 1; at < entry.askers.size(); ++at) {
      text += client::line_of(line_of_asker(kAskedAgain, id, entry.askers[at]));
    }
    if (entry.state == State::kRunning) text += client::line_of({{kStarted, id}});
    if (entry.state < State::kAnswered) continue;
    text += client::line_of({{kFinished, id}, {"answer", entry.answer}});
    if (entry.state == State::kClosed) text += client::line_of({{kDelivered, id}});
  }
  return text;
}

// Writes the file again, with the last ids only. Where that fails, the long one stays, and it is
// tried again later.
void Journal::shorten() {
  drop_oldest();
  const std::string fresh = file_ + ".new";
  const std::string whole = text();
  tarvio::Fd fd(::open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, kMode));
  if (fd.valid() && tarvio::write_all(fd.get(), whole) && fsync(fd.get()) == 0 &&
      rename(fresh.c_str(), file_.c_str()) == 0) {
    sync_directory_of(file_);
    fd_ = std::move(fd);
    bytes_ = whole.size();
  } else {
    (void)unlink(fresh.c_str());
  }
  lines_ = kMostLines / 2;
  most_bytes_ = std::max(kMostBytes, 2 * bytes_);
}

// Space that only answers may use. It is not of one byte, which a file system could compress.
void Journal::keep_reserve() const {
  const std::string file = file_ + ".reserve";
  struct stat status = {};
  if (stat(file.c_str(), &status) == 0 && status.st_size == kReserveBytes) return;
  std::minstd_rand random{std::random_device()()};
  std::string bytes;
  while (bytes.size() < kReserveBytes) bytes += static_cast<char>(random());
  const tarvio::Fd fd(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode));
  if (fd.valid() && tarvio::write_all(fd.get(), bytes) && fsync(fd.get()) == 0) return;
  {
    const tarvio::ErrnoKeeper keeper;
    (void)unlink(file.c_str());
  }
  fail("write", file);
}

}  // namespace agent
