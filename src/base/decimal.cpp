#include "base/decimal.h"

namespace tarvio {

Decimal::Decimal(int number) noexcept {
  const auto bits = static_cast<unsigned>(number);
  unsigned left = number < 0 ? 0 - bits : bits;
  do {
    // Without `%`: the two together become a call of the division routine, a multiplication does
    // not.
    const unsigned tenth = left / 10;
    digits_[--start_] = static_cast<char>('0' + (left - tenth * 10));
    left = tenth;
  } while (left != 0);
  if (number < 0) digits_[--start_] = '-';
}

}  // namespace tarvio
