#include "base/text_list.h"

#include <stdlib.h>

namespace tarvio {

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
