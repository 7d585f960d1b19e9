#include "tarvio/list.h"

#include <errno.h>

#include <cstddef>

#include "base/chain.h"
#include "base/list_appender.h"
#include "base/owners.h"

static_assert(offsetof(tq_list_t, cursor) == sizeof(void*));
static_assert(offsetof(tq_list_t, count) == 2 * sizeof(void*));
static_assert(offsetof(tq_list_node, element) == sizeof(void*));

tq_list_t* tq_list_create(void) {
  tq_list_t* list = tarvio::allocate<tq_list_t>().release();
  if (list != nullptr) *list = {};
  return list;
}

int tq_list_add(tq_list_t* list, void* element) {
  if (list == nullptr) return EINVAL;
  return tarvio::append_to(*list, element) ? 0 : ENOMEM;
}

int tq_list_get(const tq_list_t* list, int32_t index, void** element) {
  if (element == nullptr) return EINVAL;
  *element = nullptr;
  if (list == nullptr || index < 0 || index >= list->count) return EINVAL;
  const tq_list_node* node = list->head;
  for (int32_t at = 0; at < index; ++at) node = node->next;
  *element = node->element;
  return 0;
}

tq_list_node* tq_list_get_last(tq_list_t* list) {
  if (list == nullptr || list->count == 0) return nullptr;
  tq_list_node* last = nullptr;
  for (tq_list_node& node : tarvio::Chain<tq_list_node>{list->head}) last = &node;
  return last;
}

void* tq_list_first(tq_list_t* list) {
  if (list == nullptr || list->head == nullptr) return nullptr;
  list->cursor = list->head;
  return list->cursor->element;
}

void* tq_list_next(tq_list_t* list) {
  if (list == nullptr || list->cursor == nullptr) return nullptr;
  list->cursor = list->cursor->next;
  return list->cursor == nullptr ? nullptr : list->cursor->element;
}

// With the cursor, which the caller sees move (oddity 10).
int32_t tq_list_indexof(tq_list_t* list, const void* element) {
  int32_t index = 0;
  for (const void* at = tq_list_first(list); at != nullptr; at = tq_list_next(list)) {
    if (at == element) return index;
    ++index;
  }
  return -1;
}

// An index past the end is that of the last node (oddity 12).
int tq_list_remove(tq_list_t* list, int32_t index) {
  if (list == nullptr || list->count < 1 || list->head == nullptr) return EINVAL;
  tq_list_node** link = &list->head;
  for (int32_t at = 0; at < index && (*link)->next != nullptr; ++at) link = &(*link)->next;
  const tarvio::Allocated<tq_list_node> removed(*link);
  *link = removed->next;
  --list->count;
  return 0;
}

int32_t tq_list_size(const tq_list_t* list) { return list == nullptr ? 0 : list->count; }

int tq_list_free(tq_list_t* list, int free_elements) {
  if (list == nullptr) return 0;
  tarvio::free_nodes(list->head, free_elements != 0);
  free(list);
  return 0;
}
