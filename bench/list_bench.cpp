// Appending to a list, held against a bare node with a tail pointer. Every case appends a million
// elements, to lists of its length, and frees nothing before the last. The heap is one free block
// at the start and its pages are there, so that neither its disorder nor the system's work counts.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdlib>
#include <ctime>
#include <vector>

#include "support/figures.h"
#include "tarvio/list.h"

namespace {

constexpr size_t kElements = 1000000;
constexpr size_t kLargeBytes = 1 << 20;
constexpr int kTrimBytes = 1 << 30;

struct BareNode {
  BareNode* next;
  void* element;
};

struct BareList {
  BareNode* head = nullptr;
  BareNode* tail = nullptr;
};

// Not inline, as the library's call is not.
[[gnu::noinline]] int append_bare(BareList* list, void* element) {
  auto* node = static_cast<BareNode*>(std::malloc(sizeof(BareNode)));
  if (node == nullptr) return -1;
  node->next = nullptr;
  node->element = element;
  if (list->tail == nullptr) {
    list->head = node;
  } else {
    list->tail->next = node;
  }
  list->tail = node;
  return 0;
}

void free_bare(BareList* list) {
  for (BareNode* node = list->head; node != nullptr;) {
    BareNode* next = node->next;
    std::free(node);
    node = next;
  }
  delete list;
}

// A large block makes malloc merge the small ones that are free.
void make_heap_one_block() {
  void* volatile block = std::malloc(kLargeBytes);
  std::free(block);
}

double processor_seconds() {
  timespec time = {};
  (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Time for one element of `kElements`, in lists of `length`. Only the appending counts.
void append_in_lists(benchmark::State& state, size_t length, auto make, auto append, auto free) {
  int element = 0;
  std::vector<decltype(make())> lists(kElements / length);
  for (auto _ : state) {
    make_heap_one_block();
    for (auto& list : lists) list = make();
    const double begin = processor_seconds();
    for (auto* list : lists) {
      for (size_t at = 0; at < length; ++at) {
        if (append(list, &element) != 0) return state.SkipWithError("out of memory");
      }
    }
    state.SetIterationTime((processor_seconds() - begin) / kElements);
    for (auto* list : lists) free(list);
  }
}

void tq_list_add_to(benchmark::State& state, size_t length) {
  append_in_lists(state, length, tq_list_create, tq_list_add,
                  [](tq_list_t* list) { tq_list_free(list, 0); });
}

void bare_append_to(benchmark::State& state, size_t length) {
  append_in_lists(
      state, length, [] { return new BareList; }, append_bare, free_bare);
}

// Google Benchmark measures until the times of the iterations add up to its least time. They are
// given for one element, so the number of iterations is fixed instead.
void add(const char* name, auto function, size_t length) {
  benchmark::RegisterBenchmark(name, function, length)->UseManualTime()->Iterations(1);
}

}  // namespace

int main(int argc, char** argv) {
  // Memory that is freed stays with the process.
  (void)mallopt(M_TRIM_THRESHOLD, kTrimBytes);
  add("tq_list_add to 1000", tq_list_add_to, 1000);
  add("tq_list_add to 1000000", tq_list_add_to, kElements);
  add("bare append to 1000000", bare_append_to, kElements);
  return tarvio_bench::run_figures(argc, argv,
                                   {{.title = "append to a list: 1,000,000 against 1,000 elements",
                                     .ours = "tq_list_add to 1000000",
                                     .floor = "tq_list_add to 1000",
                                     .times = 1.5},
                                    {.title = "append to a list of 1,000,000 against a bare node",
                                     .ours = "tq_list_add to 1000000",
                                     .floor = "bare append to 1000000",
                                     .times = 1.5}});
}
