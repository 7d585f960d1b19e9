// Lists and tables: each byte of an input is a call, whose result is compared with that of a model.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "fuzzer.h"
#include "tarvio/list.h"
#include "tarvio/table.h"

namespace tarvio_fuzz {
namespace {

// The arguments of the calls.
char objects[6];
char* const kElements[] = {nullptr, &objects[0], &objects[1], &objects[2], &objects[3]};
char* const kMissing = &objects[5];
char names[][4] = {"a", "b", "", "abc"};
char* const kKeys[] = {names[0], names[1], names[2], names[3], nullptr};

int32_t index_of(unsigned argument) { return static_cast<int32_t>(argument) - 2; }

class ListModel {
 public:
  void add(void* element) { nodes_.push_back(element); }
  int32_t size() const { return static_cast<int32_t>(nodes_.size()); }
  bool has(int32_t index) const { return index >= 0 && index < size(); }
  void* get(int32_t index) const { return has(index) ? at(index) : nullptr; }
  void* last() const { return nodes_.empty() ? nullptr : nodes_.back(); }
  // Whether the cursor may be used: not once its node is gone.
  bool has_valid_cursor() const { return !is_dangling_; }

  void* first() {
    if (nodes_.empty()) return nullptr;
    cursor_ = 0;
    is_dangling_ = false;
    return nodes_.front();
  }
  void* next() {
    if (!cursor_) return nullptr;
    cursor_ = has(*cursor_ + 1) ? std::optional(*cursor_ + 1) : std::nullopt;
    return cursor_ ? at(*cursor_) : nullptr;
  }
  int32_t index_of(const void* element) {
    int32_t index = 0;
    for (const void* each = first(); each != nullptr; each = next(), ++index)
      if (each == element) return index;
    return -1;
  }
  int remove(int32_t index) {
    if (nodes_.empty()) return EINVAL;
    const int32_t place = std::clamp(index, 0, size() - 1);
    if (cursor_ == place) {
      is_dangling_ = true;
      cursor_.reset();
    } else if (cursor_ > place) {
      --*cursor_;
    }
    nodes_.erase(nodes_.begin() + place);
    return 0;
  }

 private:
  void* at(int32_t index) const { return nodes_[static_cast<size_t>(index)]; }

  std::vector<void*> nodes_;
  std::optional<int32_t> cursor_;
  bool is_dangling_ = false;
};

// A call in the lower bits of a byte, its argument in the upper ones.
constexpr unsigned kCalls = 8;

template <size_t Count>
char* one_of(char* const (&all)[Count], unsigned argument) {
  return all[argument % Count];
}

class ListRun {
 public:
  ~ListRun() { tq_list_free(list_, 0); }

  bool does_as_model(unsigned call, unsigned argument) {
    char* const element = one_of(kElements, argument);
    const int32_t index = index_of(argument);
    switch (call) {
      case 0:
        model_.add(element);
        return tq_list_add(list_, element) == 0;
      case 1: {
        void* got = objects;
        const int code = tq_list_get(list_, index, &got);
        return code == (model_.has(index) ? 0 : EINVAL) && got == model_.get(index);
      }
      case 2: {
        const tq_list_node* last = tq_list_get_last(list_);
        return (last == nullptr) == (model_.size() == 0) &&
               (last == nullptr ? nullptr : last->element) == model_.last();
      }
      case 3:
        return tq_list_first(list_) == model_.first();
      case 4:
        return !model_.has_valid_cursor() || tq_list_next(list_) == model_.next();
      case 5: {
        char* const wanted = argument % 7 == 0 ? kMissing : element;
        return tq_list_indexof(list_, wanted) == model_.index_of(wanted);
      }
      case 6:
        return tq_list_remove(list_, index) == model_.remove(index);
      default:
        return tq_list_size(list_) == model_.size();
    }
  }

 private:
  tq_list_t* list_ = tq_list_create();
  ListModel model_;
};

class TableRun {
 public:
  ~TableRun() { tq_table_free(table_, 0); }

  bool does_as_model(unsigned call, unsigned argument) {
    char* const key = one_of(kKeys, argument);
    char* const value = one_of(kElements, argument / 2);
    switch (call) {
      case 0:
      case 1:
        pairs_.push_back({key, value});
        model_.add(&pairs_.back());
        return tq_table_put(table_, key, value) == 0;
      case 2:
        return tq_table_get(table_, key) == find(key);
      case 3:
        return tq_table_first(table_) == key_of(model_.first());
      case 4:
        return tq_table_next(table_) == key_of(model_.next());
      case 5:
        return tq_table_remove(table_, key) == 0;
      default:
        return tq_table_size(table_) == model_.size();
    }
  }

 private:
  static char* key_of(void* pair) {
    return pair == nullptr ? nullptr : static_cast<tq_table_pair*>(pair)->key;
  }
  void* find(const char* key) {
    if (key == nullptr) return nullptr;
    for (void* at = model_.first(); at != nullptr; at = model_.next()) {
      const auto* pair = static_cast<tq_table_pair*>(at);
      if (pair->key != nullptr && std::string(pair->key) == key) return pair->value;
    }
    return nullptr;
  }

  tq_table* table_ = tq_table_create();
  std::deque<tq_table_pair> pairs_;
  ListModel model_;
};

// The first byte says which of the two.
std::string check_containers(const std::string& calls) {
  ListRun list;
  TableRun table;
  const bool is_table = !calls.empty() && calls[0] == 't';
  for (size_t at = 1; at < calls.size(); ++at) {
    const unsigned byte = static_cast<unsigned char>(calls[at]);
    const unsigned call = byte % kCalls;
    const unsigned argument = byte / kCalls;
    if (!(is_table ? table.does_as_model(call, argument) : list.does_as_model(call, argument)))
      return "call " + std::to_string(call) + " at " + std::to_string(at) +
             " is not as the model's";
  }
  return "";
}

}  // namespace

const Fuzzer kContainers = {.corpus = "containers", .check = check_containers};

}  // namespace tarvio_fuzz
