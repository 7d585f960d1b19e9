// Lists whose nodes a caller relinks through the public fields.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <new>
#include <ostream>
#include <random>
#include <utility>
#include <vector>

#include "tarvio/list.h"

namespace tarvio_test {
namespace {

using Nodes = std::vector<tq_list_node*>;

tq_list_node* new_node(void* element, tq_list_node* next) {
  auto* node = static_cast<tq_list_node*>(std::malloc(sizeof(tq_list_node)));
  *node = {next, element};
  return node;
}

Nodes nodes_of(const tq_list_t* list) {
  Nodes nodes;
  for (tq_list_node* node = list->head; node != nullptr; node = node->next) nodes.push_back(node);
  return nodes;
}

std::vector<void*> elements_of(const tq_list_t* list) {
  std::vector<void*> elements;
  for (const tq_list_node* node : nodes_of(list)) elements.push_back(node->element);
  return elements;
}

// Makes these nodes, in this order, the list.
void link(tq_list_t* list, const Nodes& nodes) {
  list->head = nullptr;
  for (size_t at = nodes.size(); at > 0; --at) {
    nodes[at - 1]->next = list->head;
    list->head = nodes[at - 1];
  }
  list->count = static_cast<int32_t>(nodes.size());
}

using Discard = std::function<void(tq_list_node*)>;

// Changes the nodes of a list of two or more; those that it takes out go to discard.
struct Relink {
  const char* name;
  std::function<void(Nodes&, const Discard&)> change;
};

void PrintTo(const Relink& relink, std::ostream* stream) { *stream << relink.name; }

tq_list_node* take(Nodes& nodes, size_t at) {
  tq_list_node* taken = nodes[at];
  nodes.erase(nodes.begin() + static_cast<ptrdiff_t>(at));
  return taken;
}

const Relink kRelinks[] = {
    {"NotAtAll", [](Nodes&, const Discard&) {}},
    {"UnlinkTail",
     [](Nodes& nodes, const Discard& discard) { discard(take(nodes, nodes.size() - 1)); }},
    {"UnlinkHead", [](Nodes& nodes, const Discard& discard) { discard(take(nodes, 0)); }},
    {"UnlinkMiddle",
     [](Nodes& nodes, const Discard& discard) { discard(take(nodes, nodes.size() / 2)); }},
    {"Reverse", [](Nodes& nodes, const Discard&) { std::reverse(nodes.begin(), nodes.end()); }},
    {"SwapLastTwo",
     [](Nodes& nodes, const Discard&) { std::swap(nodes.back(), nodes[nodes.size() - 2]); }},
    {"SwapEnds", [](Nodes& nodes, const Discard&) { std::swap(nodes.front(), nodes.back()); }},
    {"RotateLeft", [](Nodes& nodes, const Discard&) { nodes.push_back(take(nodes, 0)); }},
    {"MoveTailAfterHead",
     [](Nodes& nodes, const Discard&) {
       nodes.insert(nodes.begin() + 1, take(nodes, nodes.size() - 1));
     }},
    {"Prepend",
     [](Nodes& nodes, const Discard&) { nodes.insert(nodes.begin(), new_node(&nodes, nullptr)); }},
    {"Append", [](Nodes& nodes, const Discard&) { nodes.push_back(new_node(&nodes, nullptr)); }},
    {"ReplaceTail",
     [](Nodes& nodes, const Discard& discard) {
       discard(take(nodes, nodes.size() - 1));
       nodes.push_back(new_node(&nodes, nullptr));
     }},
    {"ReplaceAll",
     [](Nodes& nodes, const Discard& discard) {
       for (tq_list_node*& node : nodes) {
         tq_list_node* old = std::exchange(node, new_node(&nodes, nullptr));
         discard(old);
       }
     }},
    {"ReplaceAllByOne",
     [](Nodes& nodes, const Discard& discard) {
       while (!nodes.empty()) discard(take(nodes, 0));
       nodes.push_back(new_node(&nodes, nullptr));
     }},
    {"Empty",
     [](Nodes& nodes, const Discard& discard) {
       while (!nodes.empty()) discard(take(nodes, 0));
     }},
};

// Nodes that are taken out may be freed at once, or live on elsewhere.
enum class Taken { kFreed, kKept };

// A list that a relink is tried on.
class RelinkedList {
 public:
  RelinkedList(const Relink& relink, int size, Taken taken) : relink_(relink), taken_(taken) {
    for (int n = 0; n < size; ++n) tq_list_add(list_, &elements_[n]);
  }
  ~RelinkedList() {
    tq_list_free(list_, 0);
    for (tq_list_node* node : kept_) std::free(node);
  }
  RelinkedList(const RelinkedList&) = delete;
  RelinkedList& operator=(const RelinkedList&) = delete;

  tq_list_t* get() const { return list_; }
  void* new_element() { return &elements_[15]; }
  void relink() {
    Nodes nodes = nodes_of(list_);
    relink_.change(nodes, [this](tq_list_node* node) {
      if (taken_ == Taken::kFreed) {
        std::free(node);
      } else {
        kept_.push_back(node);
      }
    });
    link(list_, nodes);
  }

 private:
  const Relink& relink_;
  Taken taken_;
  char elements_[16] = {};
  Nodes kept_;
  tq_list_t* list_ = tq_list_create();
};

class ListRelink : public testing::TestWithParam<Relink> {
 protected:
  static void try_all(const std::function<void(RelinkedList&)>& check) {
    for (const int size : {2, 3, 4, 7}) {
      for (const Taken taken : {Taken::kFreed, Taken::kKept}) {
        RelinkedList list(GetParam(), size, taken);
        check(list);
      }
    }
  }
};

TEST_P(ListRelink, IsSeenByTheNextAdd) {
  try_all([](RelinkedList& list) {
    list.relink();
    std::vector<void*> expected = elements_of(list.get());
    for (int n = 0; n < 2; ++n) {
      EXPECT_EQ(tq_list_add(list.get(), list.new_element()), 0);
      expected.push_back(list.new_element());
      EXPECT_EQ(elements_of(list.get()), expected);
      EXPECT_EQ(tq_list_size(list.get()), std::ssize(expected));
    }
  });
}

TEST_P(ListRelink, IsSeenByGetLast) {
  try_all([](RelinkedList& list) {
    list.relink();
    const Nodes nodes = nodes_of(list.get());
    EXPECT_EQ(tq_list_get_last(list.get()), nodes.empty() ? nullptr : nodes.back());
  });
}

TEST_P(ListRelink, IsSeenByARemoveAndTheAddAfterIt) {
  try_all([](RelinkedList& list) {
    for (const int32_t index : {INT_MAX, 1, 0}) {
      list.relink();
      std::vector<void*> expected = elements_of(list.get());
      if (tq_list_remove(list.get(), index) == 0) {
        const auto at = std::min<size_t>(static_cast<size_t>(index), expected.size() - 1);
        expected.erase(expected.begin() + static_cast<ptrdiff_t>(at));
      }
      tq_list_add(list.get(), list.new_element());
      expected.push_back(list.new_element());
      EXPECT_EQ(elements_of(list.get()), expected);
      // The next turn needs two nodes to relink.
      while (tq_list_size(list.get()) < 2) tq_list_add(list.get(), list.new_element());
    }
  });
}

INSTANTIATE_TEST_SUITE_P(List, ListRelink, testing::ValuesIn(kRelinks));

// The same count before and after, and the old node is still a last one.
TEST(ListNodes, MayBeExchangedInAListOfOne) {
  char elements[2] = {};
  tq_list_t* list = tq_list_create();
  tq_list_add(list, &elements[0]);
  tq_list_node* old = std::exchange(list->head, new_node(&elements[1], nullptr));
  tq_list_add(list, &elements[0]);
  EXPECT_EQ(elements_of(list), (std::vector<void*>{elements + 1, elements}));
  EXPECT_EQ(old->next, nullptr);
  std::free(old);
  tq_list_free(list, 0);
}

// A node that is taken out may be gone: here a page of its own, which no longer exists.
TEST(ListNodes, AreNotReadOnceTheyAreTakenOut) {
  char elements[3] = {};
  const size_t size = sizeof(tq_list_node);
  void* const page =
      ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(page, MAP_FAILED);
  tq_list_t* list = tq_list_create();
  tq_list_add(list, &elements[0]);
  auto* const tail = new (page) tq_list_node{nullptr, &elements[1]};
  list->head->next = tail;
  list->count = 2;
  EXPECT_EQ(tq_list_get_last(list), tail);

  list->head->next = nullptr;
  list->count = 1;
  ::munmap(page, size);
  EXPECT_EQ(tq_list_get_last(list), list->head);
  EXPECT_EQ(tq_list_add(list, &elements[2]), 0);
  EXPECT_EQ(elements_of(list), (std::vector<void*>{elements, elements + 2}));
  EXPECT_EQ(tq_list_remove(list, 1), 0);
  tq_list_free(list, 0);
}

TEST(ListNodes, MayMoveToAnotherList) {
  char elements[6] = {};
  tq_list_t* from = tq_list_create();
  tq_list_t* to = tq_list_create();
  for (char& element : elements) tq_list_add(&element < elements + 4 ? from : to, &element);

  Nodes kept = nodes_of(from);
  Nodes grown = nodes_of(to);
  grown.insert(grown.end(), kept.end() - 2, kept.end());
  kept.resize(2);
  link(from, kept);
  link(to, grown);
  tq_list_add(from, &elements[0]);
  tq_list_add(to, &elements[1]);

  EXPECT_EQ(elements_of(from), (std::vector<void*>{elements, elements + 1, elements}));
  EXPECT_EQ(elements_of(to), (std::vector<void*>{elements + 4, elements + 5, elements + 2,
                                                 elements + 3, elements + 1}));
  tq_list_free(from, 0);
  tq_list_free(to, 0);
}

// Random calls and relinks, each compared with a vector.
class Model {
 public:
  ~Model() { tq_list_free(list_, 0); }

  void step() {
    const int what = random(0, 99);
    if (what < 35) {
      add();
    } else if (what < 60) {
      remove();
    } else if (what < 75) {
      look_up();
    } else if (what < 88) {
      walk();
    } else {
      relink();
    }
    EXPECT_EQ(elements_of(list_), expected_);
    EXPECT_EQ(tq_list_size(list_), static_cast<int32_t>(expected_.size()));
  }

 private:
  int random(ptrdiff_t from, ptrdiff_t to) {
    return static_cast<int>(std::uniform_int_distribution<ptrdiff_t>(from, to)(engine_));
  }
  int random_index() { return random(-2, std::ssize(expected_) + 2); }
  void* random_element() { return &elements_[random(0, std::ssize(elements_) - 1)]; }

  void add() {
    void* element = random_element();
    EXPECT_EQ(tq_list_add(list_, element), 0);
    expected_.push_back(element);
  }

  void remove() {
    const int index = random_index();
    EXPECT_EQ(tq_list_remove(list_, index), expected_.empty() ? EINVAL : 0);
    if (expected_.empty()) return;
    const int at = std::clamp(index, 0, static_cast<int>(expected_.size()) - 1);
    expected_.erase(expected_.begin() + at);
    tq_list_first(list_);
  }

  void look_up() {
    const int index = random_index();
    const bool inside = index >= 0 && index < static_cast<int>(expected_.size());
    void* element = this;
    EXPECT_EQ(tq_list_get(list_, index, &element), inside ? 0 : EINVAL);
    EXPECT_EQ(element, inside ? expected_[static_cast<size_t>(index)] : nullptr);

    void* wanted = random_element();
    const auto found = std::find(expected_.begin(), expected_.end(), wanted);
    EXPECT_EQ(tq_list_indexof(list_, wanted),
              found == expected_.end() ? -1 : found - expected_.begin());

    const tq_list_node* last = tq_list_get_last(list_);
    EXPECT_EQ(last == nullptr ? nullptr : last->element,
              expected_.empty() ? nullptr : expected_.back());
  }

  void walk() {
    std::vector<void*> walked;
    for (void* at = tq_list_first(list_); at != nullptr; at = tq_list_next(list_)) {
      walked.push_back(at);
    }
    EXPECT_EQ(walked, expected_);
  }

  void relink() {
    const Relink& chosen = kRelinks[static_cast<size_t>(random(0, std::ssize(kRelinks) - 1))];
    Nodes nodes = nodes_of(list_);
    if (nodes.size() < 2) return;
    chosen.change(nodes, [](tq_list_node* node) { std::free(node); });
    for (tq_list_node* node : nodes) node->element = random_element();
    link(list_, nodes);
    expected_ = elements_of(list_);
    tq_list_first(list_);
  }

  std::mt19937 engine_{20240229};
  char elements_[8] = {};
  std::vector<void*> expected_;
  tq_list_t* list_ = tq_list_create();
};

TEST(ListModel, HoldsThroughManyRandomOperations) {
  Model model;
  for (int step = 0; step < 20000; ++step) {
    model.step();
    ASSERT_FALSE(testing::Test::HasFailure()) << "at step " << step;
  }
}

}  // namespace
}  // namespace tarvio_test
