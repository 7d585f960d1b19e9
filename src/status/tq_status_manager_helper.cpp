#include <errno.h>
#include <string.h>

#include "base/chain.h"
#include "base/list_appender.h"
#include "base/owners.h"
#include "status/status_record.h"
#include "tarvio/error.h"
#include "util/log_macros.h"

using tarvio::StatusRecord;

static_assert(sizeof(void*) == 8 ? offsetof(tq_status, detail) == 16 && sizeof(tq_status) == 40
                                 : offsetof(tq_status, detail) == 12 && sizeof(tq_status) == 24);
static_assert(offsetof(tq_status, id) == 4 && offsetof(tq_status, state) == 8);

namespace {

constexpr char kMallocError[] = "malloc error";

int out_of_memory(const char* function) {
  TQ_DEBUG("%s: %s ", function, kMallocError);
  return TQ_ERR_STATUS_MEMORY;
}

tq_status* refuse_record(const char* why) {
  TQ_DEBUG("%s: %s ", "tq_add_tq_status", why);
  return nullptr;
}

StatusRecord copy_with_id(const tq_status& source) {
  StatusRecord copy = tarvio::copy_status(source);
  if (copy != nullptr) copy->id = source.id;
  return copy;
}

// The link that leads to the record, or to the end of the chain for a record that is not in it.
tq_status** link_to(tq_status** head, const tq_status* record) {
  tq_status** link = head;
  while (*link != nullptr && *link != record) link = &(*link)->next;
  return link;
}

void delete_at(tq_status** link) {
  tq_status* const record = *link;
  if (record == nullptr) return;
  *link = record->next;
  tarvio::free_status(record);
}

// Matches records with a number in a field.
struct Has {
  int32_t tq_status::*field;
  int32_t number;
  bool operator()(const tq_status& record) const { return record.*field == number; }
};

int search_chain(const char* function, const tq_status* head, tq_status** result, Has matches) {
  if (result == nullptr) return EINVAL;
  tq_status** end = link_to(result, nullptr);
  for (const tq_status& record : tarvio::Chain<const tq_status>{head}) {
    if (!matches(record)) continue;
    *end = copy_with_id(record).release();
    if (*end == nullptr) return out_of_memory(function);
    end = &(*end)->next;
  }
  return 0;
}

int search_list(const char* function, const tq_list_t* source, tq_list_t* result, auto matches) {
  if (source == nullptr || result == nullptr) return EINVAL;
  tarvio::ListAppender found(*result);
  for (const tq_status* record : tarvio::Elements<const tq_status>(source)) {
    if (!matches(*record)) continue;
    if (!found.append(copy_with_id(*record))) return out_of_memory(function);
  }
  return 0;
}

}  // namespace

void tarvio::free_status(tq_status* record) noexcept {
  free(record->detail);
  free(record->name);
  free(record);
}

// The copy has id 0 (oddity 31).
StatusRecord tarvio::copy_status(const tq_status& source) noexcept {
  return StatusRecord(tq_add_tq_status(source.state, source.type, source.name, source.detail));
}

tq_status* tq_add_tq_status(int32_t state, int32_t type, const char* name, const char* detail) {
  if (name == nullptr) return refuse_record("name is NULL");
  if (detail == nullptr) return refuse_record("detail is NULL");
  tarvio::Allocated<tq_status> record = tarvio::allocate<tq_status>();
  tarvio::CString detail_copy = tarvio::copy_of(detail);
  tarvio::CString name_copy = tarvio::copy_of(name);
  if (record == nullptr || detail_copy == nullptr || name_copy == nullptr) {
    return refuse_record(kMallocError);
  }
  *record = {.type = type,
             .id = 0,
             .state = state,
             .detail = detail_copy.release(),
             .name = name_copy.release(),
             .next = nullptr};
  return record.release();
}

int tq_create_tq_status(int32_t state, int32_t type, const char* name, const char* detail,
                        tq_status** head) {
  if (head == nullptr) return EINVAL;
  tq_status* const record = tq_add_tq_status(state, type, name, detail);
  if (record == nullptr) return out_of_memory("tq_create_tq_status");
  *link_to(head, nullptr) = record;
  return 0;
}

int tq_copy_tq_status(const tq_status* source, tq_status** out) {
  if (source == nullptr || out == nullptr) return EINVAL;
  *out = tarvio::copy_status(*source).release();
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
  return search_chain("tq_search_tq_status_by_state", head, result, Has{&tq_status::state, state});
}

int tq_search_tq_status_by_type(int32_t type, const tq_status* head, tq_status** result) {
  return search_chain("tq_search_tq_status_by_type", head, result, Has{&tq_status::type, type});
}

int tq_search_tq_status_by_state2(int32_t state, const tq_list_t* source, tq_list_t* result) {
  return search_list("tq_search_tq_status_by_state2", source, result,
                     Has{&tq_status::state, state});
}

int tq_search_tq_status_by_type2(int32_t type, const tq_list_t* source, tq_list_t* result) {
  return search_list("tq_search_tq_status_by_type2", source, result, Has{&tq_status::type, type});
}

// Copies go to the list that is walked, where they match again (oddity 32).
int tq_search_tq_status_by_name2(const char* text, tq_list_t* list) {
  if (text == nullptr) return EINVAL;
  return search_list("tq_search_tq_status_by_name2", list, list, [text](const tq_status& record) {
    return strstr(record.name, text) != nullptr;
  });
}

int tq_delete_tq_status(tq_status** head) {
  if (head != nullptr) delete_at(head);
  return 0;
}

// An index past the end deletes nothing (oddity 33).
int tq_delete_tq_status_index(tq_status** head, int32_t index) {
  if (head == nullptr) return 0;
  tq_status** link = head;
  for (int32_t at = 0; at < index && *link != nullptr; ++at) link = &(*link)->next;
  delete_at(link);
  return 0;
}

int tq_delete_tq_status_node(tq_status** head, tq_status* record) {
  if (head == nullptr || record == nullptr) return 0;
  tq_status** link = link_to(head, record);
  if (*link == nullptr) return 0;
  *link = record->next;
  free(record);  // detail and name stay the caller's (oddity 34)
  return 0;
}

int tq_delete_tq_status_recurse(tq_status** head) {
  while (head != nullptr && *head != nullptr) delete_at(head);
  return 0;
}

int tq_status_list_free(tq_list_t* list) {
  if (list == nullptr) return 0;
  // Past null elements, as tq_list_free does, and unlike the walks.
  for (const tq_list_node& node : tarvio::Chain<const tq_list_node>{list->head}) {
    if (node.element != nullptr) tarvio::free_status(static_cast<tq_status*>(node.element));
  }
  return tq_list_free(list, 0);
}
