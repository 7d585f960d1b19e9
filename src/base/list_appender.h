// Appending to lists, and lists of strings. An appender keeps the tail for as long as it lives, so
// that collecting n elements costs n; nothing else may append to or unlink from the list meanwhile.
#ifndef TARVIO_SRC_BASE_LIST_APPENDER_H
#define TARVIO_SRC_BASE_LIST_APPENDER_H

#include <memory>
#include <string_view>

#include "tarvio/list.h"

namespace tarvio {

class ListAppender {
 public:
  explicit ListAppender(tq_list_t& list) noexcept : list_(list), end_(&list.head) { find_end(); }

  // False when memory runs out; the element then stays the caller's.
  [[nodiscard]] bool append(void* element) noexcept;

  // The list takes the element over. False when there is no element, or no memory for its node: the
  // element is freed then.
  template <typename Element, typename Deleter>
  [[nodiscard]] bool append(std::unique_ptr<Element, Deleter> element) noexcept {
    if (element == nullptr || !append(element.get())) return false;
    (void)element.release();
    return true;
  }

  // The list owns the copy.
  [[nodiscard]] bool append_copy(std::string_view text) noexcept;

  // Moves the nodes of a list to the end of this one, which cannot fail.
  void append_all(tq_list_t& from) noexcept;

  // Empties the list, and frees its elements.
  void free_all() noexcept;

 private:
  void find_end() noexcept;

  tq_list_t& list_;
  tq_list_node** end_;  // the link that the next node goes into
};

// Appends one element by a walk to the tail. False when memory runs out.
[[nodiscard]] bool append_to(tq_list_t& list, void* element) noexcept;

void free_nodes(tq_list_node* node, bool with_elements) noexcept;

// A list of strings for the length of a scope, which needs no memory for itself. Owns its nodes and
// the strings in them.
class TextList {
 public:
  TextList() = default;
  TextList(const TextList&) = delete;
  TextList& operator=(const TextList&) = delete;
  ~TextList();

  [[nodiscard]] tq_list_t* get() { return &list_; }

 private:
  tq_list_t list_ = {};
};

}  // namespace tarvio

#endif
