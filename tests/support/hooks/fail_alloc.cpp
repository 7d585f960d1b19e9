#include "support/hooks/fail_alloc.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace tarvio_test {
namespace {

std::atomic<bool> active = false;
std::atomic<int> allocations = 0;
std::atomic<bool> failed = false;
int failing_one = 0;
FailAlloc::Extent failing_extent = FailAlloc::kThatOne;

bool fails_now() {
  const int number = ++allocations;
  const bool fails =
      failing_one != 0 &&
      (failing_extent == FailAlloc::kThatOne ? number == failing_one : number >= failing_one);
  if (fails) {
    failed = true;
    errno = ENOMEM;
  }
  return fails;
}

void* counted_malloc(size_t size) { return fails_now() ? nullptr : std::malloc(size); }
void* counted_calloc(size_t count, size_t size) {
  return fails_now() ? nullptr : std::calloc(count, size);
}
void* counted_realloc(void* memory, size_t size) {
  return fails_now() ? nullptr : std::realloc(memory, size);
}
char* counted_strdup(const char* text) { return fails_now() ? nullptr : ::strdup(text); }
char* counted_strndup(const char* text, size_t size) {
  return fails_now() ? nullptr : ::strndup(text, size);
}

}  // namespace

FailAlloc::FailAlloc(int n, Extent extent) {
  if (active.exchange(true)) ADD_FAILURE() << "only one FailAlloc at a time";
  allocations = 0;
  failed = false;
  failing_one = n;
  failing_extent = extent;
  const std::pair<const char*, void*> replacements[] = {
      {"malloc", reinterpret_cast<void*>(&counted_malloc)},
      {"calloc", reinterpret_cast<void*>(&counted_calloc)},
      {"realloc", reinterpret_cast<void*>(&counted_realloc)},
      {"strdup", reinterpret_cast<void*>(&counted_strdup)},
      {"strndup", reinterpret_cast<void*>(&counted_strndup)},
  };
  for (const auto& [name, replacement] : replacements)
    if (library_imports(name)) patches_.push_back(std::make_unique<ImportPatch>(name, replacement));
  if (patches_.empty()) ADD_FAILURE() << "libtarvio.so imports no allocation";
}

FailAlloc::~FailAlloc() { active = false; }

int FailAlloc::count() const { return allocations; }

bool FailAlloc::happened() const { return failed; }

}  // namespace tarvio_test
