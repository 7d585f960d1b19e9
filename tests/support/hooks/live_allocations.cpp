#include "support/hooks/live_allocations.h"

#include <atomic>
#include <cstdlib>

namespace tarvio_test {
namespace {

std::atomic<long> live = 0;

void* count_new(void* memory) {
  if (memory != nullptr) ++live;
  return memory;
}

void* counted_malloc(size_t size) { return count_new(std::malloc(size)); }

void* counted_realloc(void* memory, size_t size) {
  void* moved = std::realloc(memory, size);
  return memory == nullptr ? count_new(moved) : moved;
}

void counted_free(void* memory) {
  if (memory != nullptr) --live;
  std::free(memory);
}

}  // namespace

LiveAllocations::LiveAllocations() {
  live = 0;
  const std::pair<const char*, void*> replacements[] = {
      {"malloc", reinterpret_cast<void*>(&counted_malloc)},
      {"realloc", reinterpret_cast<void*>(&counted_realloc)},
      {"free", reinterpret_cast<void*>(&counted_free)},
  };
  for (const auto& [name, replacement] : replacements)
    patches_.push_back(std::make_unique<ImportPatch>(name, replacement));
}

long LiveAllocations::count() const { return live; }

}  // namespace tarvio_test
