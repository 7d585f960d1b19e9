#include "log_text.h"

#include <string.h>

namespace tarviod {

namespace {

// Bytes of UTF-8 characters are none.
bool is_blank(char byte) {
  const auto value = static_cast<unsigned char>(byte);
  return value <= ' ' || value == 0x7f;
}

}  // namespace

void LineText::append(const char* piece) {
  const size_t room = sizeof text_ - 1 - length_;
  const size_t taken = strnlen(piece, room);
  memcpy(text_ + length_, piece, taken);
  length_ += taken;
  text_[length_] = '\0';
}

bool ends_line(const char* piece, bool is_last_of_all) {
  const size_t length = strlen(piece);
  if (length > 0 && piece[length - 1] == '\n') return true;
  return length < kPieceSize - 1 && !is_last_of_all;
}

void make_detail(const char* message, char (&detail)[kMostDetailBytes + 1]) {
  size_t length = strlen(message);
  while (length > 0 && is_blank(message[length - 1])) --length;
  size_t begin = 0;
  while (begin < length && is_blank(message[begin])) ++begin;
  if (length - begin > kMostDetailBytes) length = begin + kMostDetailBytes;
  for (size_t at = begin; at < length; ++at) {
    detail[at - begin] = is_blank(message[at]) ? ' ' : message[at];
  }
  detail[length - begin] = '\0';
}

}  // namespace tarviod
