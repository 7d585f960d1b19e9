// A list of strings for the length of a scope, which needs no memory for itself.
#ifndef TARVIO_SRC_BASE_TEXT_LIST_H
#define TARVIO_SRC_BASE_TEXT_LIST_H

#include <stdlib.h>

#include "tarvio/list.h"

namespace tarvio {

inline void free_nodes(tq_list_node* node, bool with_elements) noexcept {
  while (node != nullptr) {
    tq_list_node* const next = node->next;
    if (with_elements) free(node->element);
    free(node);
    node = next;
  }
}

// Owns its nodes and the strings in them.
class TextList {
 public:
  TextList() = default;
  TextList(const TextList&) = delete;
  TextList& operator=(const TextList&) = delete;
  ~TextList() { free_nodes(list_.head, true); }

  [[nodiscard]] tq_list_t* get() { return &list_; }

 private:
  tq_list_t list_ = {};
};

}  // namespace tarvio

#endif
