#include "manager/log_lines.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <new>

#include "base/pipe.h"
#include "manager/manager_reply.h"
#include "process/text_pieces.h"

namespace client {

namespace {

// "NAME[PID]:" or "NAME:".
std::optional<Ident> parse_ident(std::string_view word) {
  word.remove_suffix(1);
  if (!word.ends_with(']')) return Ident{.name = word, .pid = std::nullopt};
  const size_t bracket = word.rfind('[');
  if (bracket == std::string_view::npos) return std::nullopt;
  const std::string_view digits = word.substr(bracket + 1, word.size() - bracket - 2);
  return Ident{.name = word.substr(0, bracket), .pid = parse_number(digits)};
}

// "<11>1 2026-11-22T06:34:58+00:00 board NAME PID - - TEXT"
std::optional<Ident> parse_rfc5424(std::string_view line) {
  constexpr int kFieldsBeforeName = 3;
  for (int field = 0; field < kFieldsBeforeName; ++field) (void)take_word(line);
  const std::string_view name = take_word(line);
  const std::string_view pid = take_word(line);
  if (pid.empty()) return std::nullopt;
  return Ident{.name = name, .pid = parse_number<int32_t>(pid)};
}

}  // namespace

std::optional<Ident> ident_of(std::string_view line) {
  if (line.starts_with('<')) return parse_rfc5424(line);
  // "Nov 22 06:34:58", or one word that begins with the year; then a host and a level at most.
  const std::string_view first = take_word(line);
  if (first.empty()) return std::nullopt;
  if (std::isdigit(static_cast<unsigned char>(first.front())) == 0) {
    (void)take_word(line);
    (void)take_word(line);
  }
  for (int word = 0; word < 3; ++word) {
    const std::string_view ident = take_word(line);
    if (ident.ends_with(':')) return parse_ident(ident);
  }
  return std::nullopt;
}

void cut_lines(tarvio::LineCutter& cutter, std::string_view bytes, const LineSink& sink) {
  while (!bytes.empty()) {
    switch (cutter.feed(bytes)) {
      case tarvio::LineCutter::Result::kLine:
        sink(cutter.line().substr(0, cutter.line().size() - 1));
        break;
      case tarvio::LineCutter::Result::kOutOfMemory:
        throw std::bad_alloc();
      case tarvio::LineCutter::Result::kNeedsMore:
        break;
    }
  }
}

bool LogFile::read_new(const LineSink& sink) {
  if (!file_.valid() && !open_file()) return false;
  if (!rewind_if_truncated() || !read_rest(sink)) return false;
  if (!is_replaced()) return true;
  // What was written to the old file before the first line of the new one.
  if (!read_rest(sink)) return false;
  if (cutter_.finish()) sink(cutter_.line());
  return open_file() && read_rest(sink);
}

bool LogFile::open_file() {
  file_.reset(open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  return file_.valid();
}

bool LogFile::read_rest(const LineSink& sink) {
  std::array<char, 16384> piece;
  while (true) {
    const ssize_t count = tarvio::read_some(file_.get(), piece);
    if (count <= 0) return count == 0;
    cut_lines(cutter_, {piece.data(), static_cast<size_t>(count)}, sink);
  }
}

// A new file that is empty may be followed by lines in the old one.
bool LogFile::is_replaced() const {
  struct stat ours = {};
  struct stat now = {};
  return fstat(file_.get(), &ours) == 0 && stat(path_.c_str(), &now) == 0 && now.st_size > 0 &&
         (ours.st_ino != now.st_ino || ours.st_dev != now.st_dev);
}

bool LogFile::rewind_if_truncated() {
  struct stat ours = {};
  if (fstat(file_.get(), &ours) != 0) return false;
  if (lseek(file_.get(), 0, SEEK_CUR) <= ours.st_size) return true;
  (void)cutter_.finish();
  return lseek(file_.get(), 0, SEEK_SET) == 0;
}

}  // namespace client
