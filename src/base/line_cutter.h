// The one place where bytes are cut into lines. A cutter is fed bytes as they arrive; LineReader
// and PieceReader feed it from a descriptor. take_line cuts a text that is in memory already.
#ifndef TARVIO_SRC_BASE_LINE_CUTTER_H
#define TARVIO_SRC_BASE_LINE_CUTTER_H

#include <stddef.h>

#include <span>
#include <string_view>

namespace tarvio {

enum class LineEnd {
  kLineFeed,  // "\n", which stays part of the line
  kEither,    // "\n" or "\r", each of which stays part of the line that it ends
  kAny,       // "\n", "\r\n" or "\r", none of which is part of the line
};

// What becomes of a line that is longer than the room for it.
enum class Excess {
  kNextPiece,  // the line comes as several, as fgets has it
  kDropped,    // the line is cut
};

// Length of the line at the start of some bytes, its line end included; 0 when the bytes hold no
// line end.
size_t line_length(std::string_view bytes, LineEnd line_end);

class LineCutter {
 public:
  // Lines in room that stays the caller's, of at least 2 bytes: one is for the zero at the end.
  LineCutter(LineEnd line_end, std::span<char> room, Excess excess = Excess::kNextPiece)
      : line_end_(line_end), excess_(excess), text_(room.data()), size_(room.size()) {}
  // Lines of any length, in room that grows, so that nothing is ever in excess.
  explicit LineCutter(LineEnd line_end)
      : line_end_(line_end), excess_(Excess::kDropped), grows_(true) {}
  LineCutter(const LineCutter&) = delete;
  LineCutter& operator=(const LineCutter&) = delete;
  ~LineCutter();

  enum class Result { kLine, kNeedsMore, kOutOfMemory };

  // Takes bytes from the front up to the end of a line, which is valid until the next call. When
  // memory runs out the line keeps what was fed before.
  Result feed(std::string_view& bytes);

  // At the end of the data: whether there is a last line without a line end.
  bool finish();

  // The line, or as much of it as was fed. A zero follows it, and it may be changed in place.
  [[nodiscard]] std::string_view line() const { return {text_, length_}; }
  [[nodiscard]] char* text() { return text_; }

 private:
  bool reserve(size_t more);
  size_t put(std::string_view bytes);

  LineEnd line_end_;
  Excess excess_;
  bool grows_ = false;
  bool is_whole_ = false;         // the next byte begins another line
  bool is_after_return_ = false;  // a line feed would belong to the line before
  char* text_ = nullptr;
  size_t size_ = 0;
  size_t length_ = 0;
};

// Takes the first line off a text and returns it without its line feed; the rest of the text when
// there is no line feed.
inline std::string_view take_line(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(line.size() < text.size() ? line.size() + 1 : text.size());
  return line;
}

}  // namespace tarvio

#endif
