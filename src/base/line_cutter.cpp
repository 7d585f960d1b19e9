#include "base/line_cutter.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace tarvio {

namespace {

constexpr size_t kGrowth = 1024;

}  // namespace

size_t line_length(std::string_view bytes, LineEnd line_end) {
  size_t at = bytes.find('\n');
  // Two searches of many bytes at a time: find_first_of compares them one by one.
  if (line_end != LineEnd::kLineFeed) {
    at = std::min(at, std::string_view(bytes.data(), std::min(at, bytes.size())).find('\r'));
  }
  return at == std::string_view::npos ? 0 : at + 1;
}

LineCutter::~LineCutter() {
  if (grows_) free(text_);
}

bool LineCutter::reserve(size_t more) {
  if (!grows_ || length_ + more < size_) return true;
  const size_t size = length_ + more + kGrowth;
  void* grown = realloc(text_, size);
  if (grown == nullptr) return false;
  text_ = static_cast<char*>(grown);
  size_ = size;
  return true;
}

size_t LineCutter::put(std::string_view bytes) {
  const size_t count = std::min(bytes.size(), size_ - 1 - length_);
  memcpy(text_ + length_, bytes.data(), count);
  length_ += count;
  text_[length_] = '\0';
  return count;
}

LineCutter::Result LineCutter::feed(std::string_view& bytes) {
  if (is_whole_) length_ = 0;
  is_whole_ = false;
  if (bytes.empty()) return Result::kNeedsMore;
  if (is_after_return_ && bytes.front() == '\n') bytes.remove_prefix(1);
  is_after_return_ = false;

  const size_t length = line_length(bytes, line_end_);
  // Not substr, whose check of the range needs the C++ run-time library when it is not optimised
  // out.
  std::string_view line(bytes.data(), length == 0 ? bytes.size() : length);
  if (length != 0 && line_end_ == LineEnd::kAny) {
    is_after_return_ = line.back() == '\r';
    line.remove_suffix(1);
  }
  if (!reserve(line.size())) return Result::kOutOfMemory;
  const size_t taken = put(line);
  // With kAny a full room may still be a whole line: only the next byte shows.
  const bool is_full = length_ + 1 == size_ && line_end_ != LineEnd::kAny;
  if (excess_ == Excess::kNextPiece && (taken < line.size() || is_full)) {
    bytes.remove_prefix(taken);
    is_whole_ = true;
  } else {
    bytes.remove_prefix(length == 0 ? line.size() : length);
    is_whole_ = length != 0;
  }
  return is_whole_ ? Result::kLine : Result::kNeedsMore;
}

bool LineCutter::finish() {
  if (is_whole_ || length_ == 0) return false;
  is_whole_ = true;
  return true;
}

}  // namespace tarvio
