#include "tarvio/list.h"

#include <errno.h>

#include <cstddef>

#include "base/owners.h"

namespace {

// What tq_list_create really makes. The remembered tail saves the walk in tq_list_add; the other
// fields tell whether the list is still as this unit left it, because callers may relink nodes
// themselves.
struct TrackedList {
  tq_list_t list;
  tq_list_node* tail;         // null when unknown
  tq_list_node* before_tail;  // null when unknown or when there is none
  tq_list_node* head;
  int32_t count;
};
static_assert(offsetof(TrackedList, list) == 0);
static_assert(offsetof(tq_list_t, cursor) == sizeof(void*));
static_assert(offsetof(tq_list_t, count) == 2 * sizeof(void*));
static_assert(offsetof(tq_list_node, element) == sizeof(void*));

TrackedList& tracked(tq_list_t* list) { return *reinterpret_cast<TrackedList*>(list); }

void remember(tq_list_t* list, tq_list_node* tail, tq_list_node* before_tail) {
  TrackedList& known = tracked(list);
  known.tail = tail;
  known.before_tail = before_tail;
  known.head = list->head;
  known.count = list->count;
}

// From the list's head to its tail: an earlier difference tells of a later node that the caller may
// have freed.
bool tail_is_known(tq_list_t* list) {
  const TrackedList& known = tracked(list);
  return known.tail != nullptr && known.head == list->head && known.count == list->count &&
         (known.before_tail == nullptr || known.before_tail->next == known.tail) &&
         known.tail->next == nullptr;
}

tq_list_node* find_tail(tq_list_t* list) {
  if (list->head == nullptr) return nullptr;
  if (tail_is_known(list)) return tracked(list).tail;
  tq_list_node* before = nullptr;
  tq_list_node* node = list->head;
  while (node->next != nullptr) {
    before = node;
    node = node->next;
  }
  remember(list, node, before);
  return node;
}

}  // namespace

tq_list_t* tq_list_create(void) {
  TrackedList* list = tarvio::allocate<TrackedList>().release();
  if (list == nullptr) return nullptr;
  *list = TrackedList{};
  return &list->list;
}

int tq_list_add(tq_list_t* list, void* element) {
  if (list == nullptr) return EINVAL;
  tq_list_node* node = tarvio::allocate<tq_list_node>().release();
  if (node == nullptr) return ENOMEM;
  *node = {.next = nullptr, .element = element};

  tq_list_node* tail = find_tail(list);
  (tail == nullptr ? list->head : tail->next) = node;
  ++list->count;
  remember(list, node, tail);
  return 0;
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
  return list == nullptr || list->count == 0 ? nullptr : find_tail(list);
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

int32_t tq_list_indexof(tq_list_t* list, const void* element) {
  int32_t index = 0;
  for (const void* at = tq_list_first(list); at != nullptr; at = tq_list_next(list)) {
    if (at == element) return index;
    ++index;
  }
  return -1;
}

int tq_list_remove(tq_list_t* list, int32_t index) {
  if (list == nullptr || list->count < 1 || list->head == nullptr) return EINVAL;

  // An index past the end means the last node, on purpose.
  tq_list_node* before_previous = nullptr;
  tq_list_node* previous = nullptr;
  tq_list_node* node = list->head;
  for (int32_t at = 0; at < index && node->next != nullptr; ++at) {
    before_previous = previous;
    previous = node;
    node = node->next;
  }

  const bool tail_was_known = tail_is_known(list);
  tq_list_node* tail = tracked(list).tail;
  tq_list_node* before_tail = tracked(list).before_tail;

  (previous == nullptr ? list->head : previous->next) = node->next;
  --list->count;
  if (!tail_was_known) {
    remember(list, nullptr, nullptr);
  } else if (node == tail) {
    remember(list, previous, before_previous);
  } else if (node == before_tail) {
    remember(list, tail, previous);
  } else {
    remember(list, tail, before_tail);
  }
  free(node);
  return 0;
}

int32_t tq_list_size(const tq_list_t* list) { return list == nullptr ? 0 : list->count; }

int tq_list_free(tq_list_t* list, int free_elements) {
  if (list == nullptr) return 0;
  for (tq_list_node* node = list->head; node != nullptr;) {
    tq_list_node* next = node->next;
    if (free_elements != 0) free(node->element);
    free(node);
    node = next;
  }
  free(list);
  return 0;
}
