// The lines of a descriptor that is read to its end: the same pieces as tq_fdgets gives, or fgets
// where a line feed alone ends a line, but with one system call for many lines, because nothing
// behind a line has to stay in the descriptor.
#ifndef TARVIO_SRC_UTIL_LINE_READER_H
#define TARVIO_SRC_UTIL_LINE_READER_H

#include <stddef.h>

#include <array>
#include <span>

namespace tarvio {

enum class LineEnd {
  kEither,    // "\n" or "\r"
  kLineFeed,  // "\n"
};

// Length of the line at the start of some bytes, its line end included; 0 when the bytes hold no
// line end.
size_t line_length(std::span<const char> bytes, LineEnd line_end = LineEnd::kEither);

// Room enough for an answer of the manager.
using ReadAhead = std::array<char, 4096>;

class LineReader {
 public:
  // fd and the room for what is read ahead stay the caller's.
  LineReader(int fd, std::span<char> ahead, LineEnd line_end = LineEnd::kEither)
      : fd_(fd), line_end_(line_end), bytes_(ahead) {}

  // Fills the buffer with the next line or piece, ended by a zero. False at the end of data and on
  // an error, which leaves its errno; the end of data leaves errno alone.
  bool next(std::span<char> buffer);

 private:
  bool refill();

  int fd_;
  LineEnd line_end_;
  std::span<char> bytes_;
  size_t begin_ = 0;
  size_t end_ = 0;
};

}  // namespace tarvio

#endif
