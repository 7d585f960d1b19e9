// Appends to a list. An appender keeps the tail for as long as it lives, so that collecting n
// elements costs n; nothing else may append to or unlink from the list meanwhile.
#ifndef TARVIO_SRC_BASE_LIST_APPENDER_H
#define TARVIO_SRC_BASE_LIST_APPENDER_H

#include <memory>
#include <utility>

#include "base/copies.h"
#include "base/owners.h"
#include "tarvio/list.h"

namespace tarvio {

class ListAppender {
 public:
  explicit ListAppender(tq_list_t& list) noexcept : list_(list), end_(&list.head) { find_end(); }

  // False when memory runs out; the element then stays the caller's.
  [[nodiscard]] bool append(void* element) noexcept {
    tq_list_node* const node = allocate<tq_list_node>().release();
    if (node == nullptr) return false;
    *node = {.next = nullptr, .element = element};
    *end_ = node;
    end_ = &node->next;
    ++list_.count;
    return true;
  }

  // The list takes the element over. False when there is no element, or no memory for its node: the
  // element is freed then.
  template <typename Element, typename Deleter>
  [[nodiscard]] bool append(std::unique_ptr<Element, Deleter> element) noexcept {
    if (element == nullptr || !append(element.get())) return false;
    (void)element.release();
    return true;
  }

  // The list owns the copy.
  [[nodiscard]] bool append_copy(std::string_view text) noexcept { return append(copy_of(text)); }

  // Moves the nodes of a list to the end of this one, which cannot fail.
  void append_all(tq_list_t& from) noexcept {
    *end_ = std::exchange(from.head, nullptr);
    list_.count += std::exchange(from.count, 0);
    find_end();
  }

  // Empties the list, and frees its elements.
  void free_all() noexcept {
    while (tq_list_node* const node = list_.head) {
      list_.head = node->next;
      free(node->element);
      free(node);
    }
    list_.count = 0;
    end_ = &list_.head;
  }

 private:
  void find_end() noexcept {
    while (*end_ != nullptr) end_ = &(*end_)->next;
  }

  tq_list_t& list_;
  tq_list_node** end_;  // the link that the next node goes into
};

}  // namespace tarvio

#endif
