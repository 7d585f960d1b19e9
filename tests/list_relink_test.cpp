// Lists whose nodes a caller relinks through the public fields: what the library remembers of a
// list must never show.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "tarvio/list.h"

namespace tarvio_test {
namespace {

tq_list_node* new_node(void* element, tq_list_node* next) {
  auto* node = static_cast<tq_list_node*>(std::malloc(sizeof(tq_list_node)));
  *node = {next, element};
  return node;
}

std::vector<tq_list_node*> nodes_of(const tq_list_t* list) {
  std::vector<tq_list_node*> nodes;
  for (tq_list_node* node = list->head; node != nullptr; node = node->next) nodes.push_back(node);
  return nodes;
}

std::vector<void*> elements_of(const tq_list_t* list) {
  std::vector<void*> elements;
  for (const tq_list_node* node : nodes_of(list)) elements.push_back(node->element);
  return elements;
}

// Makes these nodes, in this order, the list.
void link(tq_list_t* list, const std::vector<tq_list_node*>& nodes) {
  list->head = nullptr;
  for (size_t at = nodes.size(); at > 0; --at) {
    nodes[at - 1]->next = list->head;
    list->head = nodes[at - 1];
  }
  list->count = static_cast<int32_t>(nodes.size());
}

using Relink = std::function<void(std::vector<tq_list_node*>&)>;

void drop(std::vector<tq_list_node*>& nodes, size_t at) {
  std::free(nodes[at]);
  nodes.erase(nodes.begin() + static_cast<ptrdiff_t>(at));
}

struct NamedRelink {
  const char* name;
  Relink relink;
};

const NamedRelink kRelinks[] = {
    {"NotAtAll", [](auto&) {}},
    {"UnlinkTail", [](auto& nodes) { drop(nodes, nodes.size() - 1); }},
    {"UnlinkHead", [](auto& nodes) { drop(nodes, 0); }},
    {"UnlinkMiddle", [](auto& nodes) { drop(nodes, nodes.size() / 2); }},
    {"Reverse", [](auto& nodes) { std::reverse(nodes.begin(), nodes.end()); }},
    {"SwapLastTwo", [](auto& nodes) { std::swap(nodes.back(), nodes[nodes.size() - 2]); }},
    {"SwapEnds", [](auto& nodes) { std::swap(nodes.front(), nodes.back()); }},
    {"RotateLeft", [](auto& nodes) { std::rotate(nodes.begin(), nodes.begin() + 1, nodes.end()); }},
    {"MoveTailBehindHead",
     [](auto& nodes) { std::rotate(nodes.begin() + 1, nodes.end() - 1, nodes.end()); }},
    {"Prepend", [](auto& nodes) { nodes.insert(nodes.begin(), new_node(&nodes, nullptr)); }},
    {"Append", [](auto& nodes) { nodes.push_back(new_node(&nodes, nullptr)); }},
    {"ReplaceTail",
     [](auto& nodes) {
       drop(nodes, nodes.size() - 1);
       nodes.push_back(new_node(&nodes, nullptr));
     }},
    {"ReplaceAll",
     [](auto& nodes) {
       for (tq_list_node*& node : nodes) {
         std::free(node);
         node = new_node(&nodes, nullptr);
       }
     }},
    {"Empty",
     [](auto& nodes) {
       while (!nodes.empty()) drop(nodes, 0);
     }},
};

class ListRelink : public testing::TestWithParam<std::tuple<NamedRelink, int>> {
 protected:
  ListRelink() {
    for (int n = 0; n < std::get<int>(GetParam()); ++n) tq_list_add(list_, &elements_[n]);
  }
  ~ListRelink() override { tq_list_free(list_, 0); }

  void relink() {
    std::vector<tq_list_node*> nodes = nodes_of(list_);
    std::get<NamedRelink>(GetParam()).relink(nodes);
    link(list_, nodes);
  }

  char elements_[16] = {};
  tq_list_t* list_ = tq_list_create();
};

TEST_P(ListRelink, IsSeenByTheNextAdd) {
  relink();
  std::vector<void*> expected = elements_of(list_);
  for (char* element : {&elements_[14], &elements_[15]}) {
    EXPECT_EQ(tq_list_add(list_, element), 0);
    expected.push_back(element);
    EXPECT_EQ(elements_of(list_), expected);
  }
  EXPECT_EQ(tq_list_size(list_), static_cast<int32_t>(expected.size()));
}

TEST_P(ListRelink, IsSeenByGetLast) {
  relink();
  const std::vector<tq_list_node*> nodes = nodes_of(list_);
  EXPECT_EQ(tq_list_get_last(list_), nodes.empty() ? nullptr : nodes.back());
}

TEST_P(ListRelink, IsSeenByARemoveAndTheAddBehindIt) {
  for (const int32_t index : {INT_MAX, 1, 0}) {
    relink();
    std::vector<void*> expected = elements_of(list_);
    if (tq_list_remove(list_, index) == 0) {
      const auto at = std::min<size_t>(static_cast<size_t>(index), expected.size() - 1);
      expected.erase(expected.begin() + static_cast<ptrdiff_t>(at));
    }
    tq_list_add(list_, &elements_[15]);
    expected.push_back(&elements_[15]);
    EXPECT_EQ(elements_of(list_), expected);
    // The next turn needs two nodes to relink.
    while (list_->count < 2) tq_list_add(list_, &elements_[14]);
  }
}

INSTANTIATE_TEST_SUITE_P(List, ListRelink,
                         testing::Combine(testing::ValuesIn(kRelinks), testing::Values(2, 3, 4, 7)),
                         [](const auto& tested) {
                           return std::string(std::get<0>(tested.param).name) +
                                  std::to_string(std::get<1>(tested.param));
                         });

TEST(ListNodes, MayMoveToAnotherList) {
  char elements[6] = {};
  tq_list_t* from = tq_list_create();
  tq_list_t* to = tq_list_create();
  for (char& element : elements) tq_list_add(&element < elements + 4 ? from : to, &element);

  std::vector<tq_list_node*> kept = nodes_of(from);
  std::vector<tq_list_node*> grown = nodes_of(to);
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
    const int what = random(0, relinked_ ? 74 : 99);
    relinked_ = false;
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
    const NamedRelink& chosen = kRelinks[static_cast<size_t>(random(0, std::ssize(kRelinks) - 1))];
    std::vector<tq_list_node*> nodes = nodes_of(list_);
    if (nodes.size() < 2) return;
    chosen.relink(nodes);
    for (tq_list_node* node : nodes) node->element = random_element();
    link(list_, nodes);
    expected_ = elements_of(list_);
    tq_list_first(list_);
    relinked_ = true;
  }

  std::mt19937 engine_{20240229};
  char elements_[8] = {};
  std::vector<void*> expected_;
  bool relinked_ =
      false;  // what the library remembers is checked before it is put out of date again
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
