// The lines of a descriptor that is read to its end: the same pieces as tq_fdgets gives, but with
// one system call for many lines, because nothing behind a line has to stay in the descriptor.
#ifndef TARVIO_SRC_UTIL_LINE_READER_H
#define TARVIO_SRC_UTIL_LINE_READER_H

#include <stddef.h>

#include <array>
#include <span>

namespace tarvio {

// Length of the line at the start of some bytes, its line end ("\n" or "\r") included; 0 when the
// bytes hold no line end.
size_t line_length(std::span<const char> bytes);

class LineReader {
 public:
  // fd stays the caller's.
  explicit LineReader(int fd) : fd_(fd) {}

  // Fills the buffer with the next line or piece, ended by a zero. False at the end of data and on
  // an error, which leaves its errno; the end of data leaves errno alone.
  bool next(std::span<char> buffer);

 private:
  bool refill();

  int fd_;
  size_t begin_ = 0;
  size_t end_ = 0;
  std::array<char, 4096> bytes_;
};

}  // namespace tarvio

#endif
