// Numbers as text. std::to_chars would bring its table and a division routine into each user.
#ifndef TARVIO_SRC_BASE_DECIMAL_H
#define TARVIO_SRC_BASE_DECIMAL_H

#include <string_view>

namespace tarvio {

// The decimal text of a number, as "%d" writes it.
class Decimal {
 public:
  explicit Decimal(int number) noexcept;

  // As long as the object lives.
  [[nodiscard]] std::string_view text() const noexcept {
    return {digits_ + start_, kSize - start_};
  }

 private:
  static constexpr size_t kSize = 11;  // "-2147483648"

  char digits_[kSize];
  size_t start_ = kSize;
};

}  // namespace tarvio

#endif
