#include "runtime/state_file.h"

#include <algorithm>
#include <charconv>
#include <span>

namespace runtime {

namespace {

constexpr std::string_view kFirstLine = "tarvio-state\t1";
constexpr std::string_view kLastLine = "end";

// string_view::substr would need a run-time library for its exception.
std::string_view part(std::string_view text, size_t from, size_t to) {
  return {text.data() + from, std::min(to, text.size()) - from};
}

// Takes the fields of a line one after the other. Fails for good with the first one that is not
// there or not understood.
class Fields {
 public:
  Fields(std::string_view line, std::string_view key) : rest_(line) { ok_ = text() == key; }

  std::string_view text() {
    if (at_end_) ok_ = false;
    const size_t end = rest_.find('\t');
    const std::string_view field = part(rest_, 0, end);
    at_end_ = end == std::string_view::npos;
    rest_.remove_prefix(at_end_ ? rest_.size() : end + 1);
    return field;
  }

  template <typename Number>
  Number number() {
    return number_of<Number>(text());
  }

  AppState state() { return static_cast<AppState>(index_of(text(), kAppStateWords)); }

  // "-", or a kind and a number with a blank between them.
  AppExit exit() {
    const std::string_view field = text();
    if (field == "-") return {};
    const size_t blank = field.find(' ');
    const size_t kind = index_of(part(field, 0, blank), kExitWords);
    ok_ = ok_ && blank != std::string_view::npos;
    return {.kind = static_cast<ExitKind>(kind),
            .number = ok_ ? number_of<int>(part(field, blank + 1, field.size())) : 0};
  }

  // "-" is none.
  std::string_view version() {
    const std::string_view field = text();
    return field == "-" ? std::string_view() : field;
  }

  // Everything was understood, and nothing is left.
  [[nodiscard]] bool done() const { return ok_ && at_end_; }

 private:
  size_t index_of(std::string_view word, std::span<const std::string_view> words) {
    const size_t index = static_cast<size_t>(std::ranges::find(words, word) - words.begin());
    if (index < words.size()) return index;
    ok_ = false;
    return 0;
  }

  template <typename Number>
  Number number_of(std::string_view digits) {
    Number number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [rest, error] = std::from_chars(digits.data(), end, number);
    if (error != std::errc() || rest != end) ok_ = false;
    return number;
  }

  std::string_view rest_;
  bool at_end_ = false;
  bool ok_ = true;
};

}  // namespace

std::optional<AppLine> StateFile::parse_app(std::string_view line) {
  Fields fields(line, "app");
  AppLine app;
  app.name = fields.text();
  app.state = fields.state();
  app.pid = fields.number<pid_t>();
  app.since = fields.number<int64_t>();
  app.starts = fields.number<int>();
  app.exit = fields.exit();
  app.installed = fields.version();
  app.running = fields.version();
  return fields.done() && !app.name.empty() ? std::optional(app) : std::nullopt;
}

std::optional<StatusLine> StateFile::parse_status(std::string_view line) {
  Fields fields(line, "status");
  StatusLine status;
  status.level = fields.number<int>();
  status.name = fields.text();
  status.detail = fields.text();
  return fields.done() ? std::optional(status) : std::nullopt;
}

bool StateFile::take_head(std::string_view line) {
  if (Fields boot(line, "boot"); boot_.empty()) {
    boot_ = boot.text();
    return boot.done() && !boot_.empty();
  }
  if (Fields manager(line, "manager"); manager_.pid == 0) {
    manager_.pid = manager.number<pid_t>();
    manager_.start = manager.number<uint64_t>();
    return manager.done() && manager_.pid > 0;
  }
  Fields descriptors(line, "descriptors");
  descriptors_used_ = descriptors.number<int>();
  descriptor_limit_ = descriptors.number<int>();
  return descriptors.done();
}

std::optional<StateFile> StateFile::parse(std::string_view text) {
  constexpr int kHeadLines = 3;
  if (text.empty() || text.back() != '\n') return std::nullopt;
  StateFile file(text);
  bool ok = true;
  bool ended = false;
  int number = 0;
  file.each_line([&](std::string_view line) {
    if (number == 0) {
      ok = line == kFirstLine;
    } else if (ended) {
      ok = false;
    } else if (number <= kHeadLines) {
      ok = ok && file.take_head(line);
    } else if (line == kLastLine) {
      ended = true;
    } else {
      ok = ok && (parse_app(line) || parse_status(line));
    }
    ++number;
  });
  return ok && ended ? std::optional(file) : std::nullopt;
}

bool StateFile::is_of_this_boot() const {
  BootId id;
  return read_boot_id(id) && boot_ == id.text;
}

}  // namespace runtime
