#include <errno.h>
#include <string.h>

#include "base/chain.h"
#include "base/owners.h"
#include "tarvio/error.h"
#include "tarvio/status.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

static_assert(sizeof(void*) == 8 ? offsetof(tq_status, detail) == 16 && sizeof(tq_status) == 40
                                 : offsetof(tq_status, detail) == 12 && sizeof(tq_status) == 24);
static_assert(offsetof(tq_status, id) == 4 && offsetof(tq_status, state) == 8);

namespace {

constexpr char kMallocError[] = "malloc error";

int out_of_memory(const char* function) {
  TQ_DEBUG("%s: %s ", function, kMallocError);
  return TQ_ERR_STATUS_MEMORY;
}

void free_record(tq_status* record) {
  free(record->detail);
  free(record->name);
  free(record);
}

// The link that leads to the record, or to the end of the chain for a record that is not in it.
tq_status** link_to(tq_status** head, const tq_status* record) {
  tq_status** link = head;
  while (*link != nullptr && *link != record) link = &(*link)->next;
  return link;
}

void append(tq_status** head, tq_status* record) { *link_to(head, nullptr) = record; }

tq_status* copy_with_id(const tq_status& source) {
  tq_status* copy = nullptr;
  if (tq_copy_tq_status(&source, &copy) == 0) copy->id = source.id;
  return copy;
}

int search_chain(const char* function, const tq_status* head, tq_status** result, auto matches) {
  if (result == nullptr) return EINVAL;
  for (const tq_status& record : tarvio::Chain<const tq_status>{head}) {
    if (!matches(record)) continue;
    tq_status* copy = copy_with_id(record);
    if (copy == nullptr) return out_of_memory(function);
    append(result, copy);
  }
  return 0;
}

int search_list(const char* function, const tq_list_t* source, tq_list_t* result, auto matches) {
  if (source == nullptr || result == nullptr) return EINVAL;
  for (const tq_status* record : tarvio::Elements<const tq_status>(source)) {
    if (!matches(*record)) continue;
    tq_status* copy = copy_with_id(*record);
    if (copy == nullptr) return out_of_memory(function);
    if (tq_list_add(result, copy) != 0) {
      free_record(copy);
      return out_of_memory(function);
    }
  }
  return 0;
}

auto has_state(int32_t state) {
  return [state](const tq_status& record) { return record.state == state; };
}

auto has_type(int32_t type) {
  return [type](const tq_status& record) { return record.type == type; };
}

}  // namespace

tq_status* tq_add_tq_status(int32_t state, int32_t type, const char* name, const char* detail) {
  if (name == nullptr) {
    TQ_DEBUG("%s: %s ", "tq_add_tq_status", "name is NULL");
    return nullptr;
  }
  if (detail == nullptr) {
    TQ_DEBUG("%s: %s ", "tq_add_tq_status", "detail is NULL");
    return nullptr;
  }
  tarvio::Allocated<tq_status> record = tarvio::allocate<tq_status>();
  char* detail_copy = nullptr;
  char* name_copy = nullptr;
  if (record != nullptr) tq_strdup(&detail_copy, detail);
  if (detail_copy != nullptr) tq_strdup(&name_copy, name);
  if (name_copy == nullptr) {
    free(detail_copy);
    (void)out_of_memory("tq_add_tq_status");
    return nullptr;
  }
  *record = {.type = type,
             .id = 0,
             .state = state,
             .detail = detail_copy,
             .name = name_copy,
             .next = nullptr};
  return record.release();
}

int tq_create_tq_status(int32_t state, int32_t type, const char* name, const char* detail,
                        tq_status** head) {
  if (head == nullptr) return EINVAL;
  tq_status* record = tq_add_tq_status(state, type, name, detail);
  if (record == nullptr) return out_of_memory("tq_create_tq_status");
  append(head, record);
  return 0;
}

int tq_copy_tq_status(const tq_status* source, tq_status** out) {
  if (source == nullptr || out == nullptr) return EINVAL;
  *out = tq_add_tq_status(source->state, source->type, source->name, source->detail);
  return *out == nullptr ? TQ_ERR_STATUS_MEMORY : 0;
}

tq_status* tq_search_tq_status(tq_status* head, int32_t id) {
  for (tq_status& record : tarvio::Chain<tq_status>{head}) {
    if (record.id == id) return &record;
  }
  return nullptr;
}

tq_status* previous_node(tq_status* head, const tq_status* record) {
  if (record == nullptr) return nullptr;
  for (tq_status& at : tarvio::Chain<tq_status>{head}) {
    if (at.next == record) return &at;
  }
  return nullptr;
}

int tq_search_tq_status_by_state(int32_t state, const tq_status* head, tq_status** result) {
  return search_chain("tq_search_tq_status_by_state", head, result, has_state(state));
}

int tq_search_tq_status_by_type(int32_t type, const tq_status* head, tq_status** result) {
  return search_chain("tq_search_tq_status_by_type", head, result, has_type(type));
}

int tq_search_tq_status_by_state2(int32_t state, const tq_list_t* source, tq_list_t* result) {
  return search_list("tq_search_tq_status_by_state2", source, result, has_state(state));
}

int tq_search_tq_status_by_type2(int32_t type, const tq_list_t* source, tq_list_t* result) {
  return search_list("tq_search_tq_status_by_type2", source, result, has_type(type));
}

// Copies go to the list that is walked, where they match again, on purpose: the call ends when
// memory does.
int tq_search_tq_status_by_name2(const char* text, tq_list_t* list) {
  if (text == nullptr) return EINVAL;
  return search_list("tq_search_tq_status_by_name2", list, list, [text](const tq_status& record) {
    return strstr(record.name, text) != nullptr;
  });
}

int tq_delete_tq_status(tq_status** head) {
  if (head == nullptr || *head == nullptr) return 0;
  tq_status* record = *head;
  *head = record->next;
  free_record(record);
  return 0;
}

int tq_delete_tq_status_index(tq_status** head, int32_t index) {
  if (head == nullptr) return 0;
  tq_status** link = head;
  for (int32_t at = 0; at < index && *link != nullptr; ++at) link = &(*link)->next;
  return tq_delete_tq_status(link);
}

int tq_delete_tq_status_node(tq_status** head, tq_status* record) {
  if (head == nullptr || record == nullptr) return 0;
  tq_status** link = link_to(head, record);
  if (*link == nullptr) return 0;
  *link = record->next;
  free(record);  // detail and name stay the caller's, on purpose
  return 0;
}

int tq_delete_tq_status_recurse(tq_status** head) {
  while (head != nullptr && *head != nullptr) tq_delete_tq_status(head);
  return 0;
}

int tq_status_list_free(tq_list_t* list) {
  if (list == nullptr) return 0;
  // Past null elements, as tq_list_free does, and unlike the walks.
  for (const tq_list_node& node : tarvio::Chain<const tq_list_node>{list->head}) {
    if (node.element != nullptr) free_record(static_cast<tq_status*>(node.element));
  }
  return tq_list_free(list, 0);
}
