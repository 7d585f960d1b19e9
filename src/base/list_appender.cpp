#include "base/list_appender.h"

#include <stdlib.h>

#include <utility>

#include "base/owners.h"

namespace tarvio {

bool ListAppender::append(void* element) noexcept {
  tq_list_node* const node = allocate<tq_list_node>().release();
  if (node == nullptr) return false;
  *node = {.next = nullptr, .element = element};
  *end_ = node;
  end_ = &node->next;
  ++list_.count;
  return true;
}

bool ListAppender::append_copy(std::string_view text) noexcept { return append(copy_of(text)); }

void ListAppender::append_all(tq_list_t& from) noexcept {
  *end_ = std::exchange(from.head, nullptr);
  list_.count += std::exchange(from.count, 0);
  find_end();
}

void ListAppender::free_all() noexcept {
  free_nodes(std::exchange(list_.head, nullptr), true);
  list_.count = 0;
  end_ = &list_.head;
}

void ListAppender::find_end() noexcept {
  while (*end_ != nullptr) end_ = &(*end_)->next;
}

bool append_to(tq_list_t& list, void* element) noexcept {
  return ListAppender(list).append(element);
}

void free_nodes(tq_list_node* node, bool with_elements) noexcept {
  while (node != nullptr) {
    tq_list_node* const next = node->next;
    if (with_elements) free(node->element);
    free(node);
    node = next;
  }
}

TextList::~TextList() { free_nodes(list_.head, true); }

}  // namespace tarvio
