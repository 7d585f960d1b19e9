// Reads the new bytes of the log itself instead of with tq_log_read (oddity 110). Logs nothing: its
// messages could go to the log that it reads, and make it grow without end.
#include "log_file.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "base/owners.h"

namespace tarviod {

namespace {

using tarvio::LineCutter;

constexpr char kNotRegular[] = "is not a regular file";

bool is_same_file(const LogPosition& position, const struct stat& info) {
  return position.device == info.st_dev && position.inode == info.st_ino;
}

void remember(LogLine& line, uint64_t at, std::string_view bytes) {
  line.at = at;
  line.length = bytes.size();
  std::copy(bytes.begin(), bytes.end(), line.bytes);
}

}  // namespace

LogFile::LogFile(const char* path, runtime::LogFormat format, LogReporter& reporter)
    : path_(path), format_(format), reporter_(reporter), position_(reporter.position()) {
  std::string_view begun(position_.begun.bytes, position_.begun.length);
  (void)lines_.feed(begun);
}

void LogFile::look() { reporter_.complain_about_log(read_log()); }

// The log is closed between two looks, so that its file system can be unmounted. Null, or why it
// cannot be read.
const char* LogFile::read_log() {
  // Without O_NONBLOCK a FIFO would hold the call until somebody writes to it.
  const tarvio::Fd log(open(path_, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat info = {};
  if (!log.valid() || fstat(log.get(), &info) != 0) {
    if (errno == ENOENT) position_.known = true;            // all of a later log is new
    return errno == ENXIO ? kNotRegular : strerror(errno);  // ENXIO: a socket
  }
  if (!S_ISREG(info.st_mode)) return kNotRegular;
  const auto size = static_cast<uint64_t>(info.st_size);
  if (position_.known && is_same_file(position_, info) && position_.offset == size) return nullptr;
  find_position(log.get(), info);
  // What is written meanwhile is for the next look, so that each look has an end.
  if (!read_to(log.get(), size)) return strerror(errno);
  position_.known = true;
  reporter_.complain_about_form();
  reporter_.send(ReportKind::kPosition);
  return nullptr;
}

// Moves the position to where the new bytes of the open log begin. A log that was truncated may
// have grown beyond the position since, so what was read last must still be in its place; if only
// the begun line is not, that line alone is read again.
void LogFile::find_position(int log, const struct stat& info) {
  const bool is_same = is_same_file(position_, info) &&
                       position_.offset <= static_cast<uint64_t>(info.st_size) &&
                       is_in_place(log, position_.last);
  if (is_same && is_in_place(log, position_.begun)) return;
  const bool has_begun = lines_.finish();
  if (is_same) {
    position_.offset = position_.begun.at;
    position_.begun.length = 0;
  } else {
    position_ = {.known = position_.known, .device = info.st_dev, .inode = info.st_ino};
    // A line that had no end when its log was replaced counts as it is.
    if (has_begun) reporter_.count(runtime::UsualLine(format_, lines_.text()));
  }
}

// After a read error it counts as in place: the whole log is not to count again because of it.
bool LogFile::is_in_place(int log, const LogLine& line) {
  if (line.length == 0) return true;
  const ssize_t count = pread(log, room_.data(), line.length, static_cast<off_t>(line.at));
  return count < 0 || (count == static_cast<ssize_t>(line.length) &&
                       memcmp(room_.data(), line.bytes, line.length) == 0);
}

// False, with errno, when reading failed.
bool LogFile::read_to(int log, uint64_t end) {
  while (position_.offset < end) {
    const auto wanted = std::min<uint64_t>(room_.size(), end - position_.offset);
    const ssize_t count =
        pread(log, room_.data(), static_cast<size_t>(wanted), static_cast<off_t>(position_.offset));
    if (count <= 0) return count == 0;  // 0: truncated meanwhile, which the next look finds
    cut_lines({room_.data(), static_cast<size_t>(count)});
  }
  return true;
}

void LogFile::cut_lines(std::string_view bytes) {
  const uint64_t end = position_.offset + bytes.size();
  while (lines_.feed(bytes) == LineCutter::Result::kLine) {
    position_.offset = end - bytes.size();
    remember(position_.last, position_.begun.at, lines_.line());
    remember(position_.begun, position_.offset, {});
    reporter_.count(runtime::UsualLine(format_, lines_.text()));
  }
  position_.offset = end;
  remember(position_.begun, position_.begun.at, lines_.line());
}

}  // namespace tarviod
