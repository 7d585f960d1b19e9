// A text that grows with what is printed into it.
#ifndef TARVIO_RUNTIME_GROWING_TEXT_H
#define TARVIO_RUNTIME_GROWING_TEXT_H

#include <stdio.h>
#include <stdlib.h>

#include <utility>

#include "base/owners.h"

namespace runtime {

class GrowingText {
 public:
  GrowingText() : file_(open_memstream(&bytes_, &size_)) {}
  GrowingText(const GrowingText&) = delete;
  GrowingText& operator=(const GrowingText&) = delete;
  ~GrowingText() { (void)take(); }

  // Null when memory ran out.
  [[nodiscard]] FILE* file() const { return file_.get(); }

  // The whole text, once; null when memory ran out.
  tarvio::CString take() {
    const bool is_whole = file_ != nullptr && fflush(file_.get()) == 0 && ferror(file_.get()) == 0;
    file_.reset();  // which may move the text
    tarvio::CString text(std::exchange(bytes_, nullptr));
    return is_whole ? std::move(text) : nullptr;
  }

 private:
  char* bytes_ = nullptr;
  size_t size_ = 0;
  tarvio::File file_;
};

}  // namespace runtime

#endif
