// Repairs of the library until the end of the scope.
#ifndef TARVIO_TESTS_SUPPORT_REPAIRS_H
#define TARVIO_TESTS_SUPPORT_REPAIRS_H

#include <gtest/gtest.h>

#include "tarvio/repairs.h"

namespace tarvio_test {

class Repairs {
 public:
  explicit Repairs(unsigned flags) { EXPECT_EQ(tq_set_repairs(flags), 0); }
  ~Repairs() { tq_set_repairs(0); }
  Repairs(const Repairs&) = delete;
  Repairs& operator=(const Repairs&) = delete;
};

}  // namespace tarvio_test

#endif
