// Lets an allocation of the library fail with ENOMEM.
//
//   for (int n = 1;; ++n) {
//     FailAlloc fail(n);
//     const int result = tq_list_add(list, element);
//     if (!fail.happened()) break;
//     EXPECT_EQ(result, ENOMEM);
//   }
//
// Allocations are the calls that the library itself makes; those of libc inside (a FILE, a
// directory stream) and of the test are not counted.
#ifndef TARVIO_TESTS_SUPPORT_HOOKS_FAIL_ALLOC_H
#define TARVIO_TESTS_SUPPORT_HOOKS_FAIL_ALLOC_H

#include <memory>
#include <vector>

#include "support/hooks/got_hook.h"

namespace tarvio_test {

// One at a time in a process.
class FailAlloc {
 public:
  enum Extent { kThatOne, kFromThenOn };

  // The n-th allocation from now on fails; with 0 none does, and they are only counted.
  explicit FailAlloc(int n, Extent extent = kThatOne);
  ~FailAlloc();
  FailAlloc(const FailAlloc&) = delete;
  FailAlloc& operator=(const FailAlloc&) = delete;

  int count() const;      // allocations so far, the failed ones included
  bool happened() const;  // whether one has failed

 private:
  std::vector<std::unique_ptr<ImportPatch>> patches_;
};

}  // namespace tarvio_test

#endif
