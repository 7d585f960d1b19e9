#include "config_line.h"

#include <string.h>

namespace tarviod {

namespace {

// The part of one line that counts: the last word in front of the colon.
class Line {
 public:
  void take(int byte) {
    if (rest_is_no_key_) return;
    if (byte == '#' || byte == ';' || byte == ':') {
      rest_is_no_key_ = true;
      has_colon_ = byte == ':';
    } else if (byte == ' ' || byte == '\t') {
      word_ended_ = true;
    } else {
      if (word_ended_) length_ = 0;
      word_ended_ = false;
      has_word_ = true;
      if (length_ < sizeof word_) word_[length_] = static_cast<char>(byte);
      ++length_;
    }
  }

  [[nodiscard]] bool lacks_colon() const { return has_word_ && !has_colon_; }
  [[nodiscard]] bool has_key(const char* key) const {
    return has_colon_ && length_ <= sizeof word_ && strlen(key) == length_ &&
           memcmp(word_, key, length_) == 0;
  }

 private:
  bool rest_is_no_key_ = false;
  bool has_colon_ = false;
  bool has_word_ = false;
  bool word_ended_ = false;
  size_t length_ = 0;
  char word_[256] = {};
};

// One byte, every line end as a line feed.
int next_byte(FILE* file) {
  const int byte = getc(file);
  if (byte != '\r') return byte;
  const int next = getc(file);
  if (next != '\n') (void)ungetc(next, file);
  return '\n';
}

}  // namespace

int line_of(FILE* file, const char* key) {
  rewind(file);
  int found = 0;
  int number = 1;
  Line line;
  for (int byte = 0; byte != EOF;) {
    byte = next_byte(file);
    if (byte != '\n' && byte != EOF) {
      line.take(byte);
      continue;
    }
    if (key == nullptr && line.lacks_colon()) return number;
    if (key != nullptr && line.has_key(key)) found = number;
    line = {};
    ++number;
  }
  return found;
}

}  // namespace tarviod
