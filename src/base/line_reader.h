// The lines of a descriptor that is read to its end, with one system call for many lines. What
// follows a line may be read ahead; where that must not happen, tq_fdgets is the reader.
#ifndef TARVIO_SRC_BASE_LINE_READER_H
#define TARVIO_SRC_BASE_LINE_READER_H

#include <array>
#include <span>

#include "base/deadline.h"
#include "base/line_cutter.h"

namespace tarvio {

// One piece of a reply of the manager, or of a log.
using ReadAhead = std::array<char, 4096>;

class LineReader {
 public:
  // The descriptor, the room for what is read ahead and the cutter stay the caller's.
  LineReader(int fd, std::span<char> ahead, LineCutter& lines,
             const Deadline& deadline = Deadline::never())
      : fd_(fd), room_(ahead), lines_(lines), deadline_(deadline) {}

  // True when the cutter holds the next line. False at the end of the data, with errno unchanged,
  // and after an error, which `error` and errno give.
  bool next();

  // 0 unless the data ended with an error: an errno value, ETIMEDOUT when the deadline passed.
  [[nodiscard]] int error() const { return error_; }

 private:
  bool refill();

  int fd_;
  std::span<char> room_;
  LineCutter& lines_;
  Deadline deadline_;
  std::string_view ahead_;
  bool is_over_ = false;
  int error_ = 0;
};

// The lines of a descriptor as fgets gives them with room for 256 bytes: with their line feeds, and
// in pieces of 255 when they are longer. Unlike fgets it loses nothing to a signal.
class PieceReader {
 public:
  explicit PieceReader(int fd);

  // True when `text` is the next piece, a string that may be changed in place.
  bool next() { return reader_.next(); }
  [[nodiscard]] char* text() { return pieces_.text(); }

 private:
  std::array<char, 256> room_;
  ReadAhead read_ahead_;
  LineCutter pieces_;
  LineReader reader_;
};

}  // namespace tarvio

#endif
