#include "tarvio/status_manager.h"

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>

#include "base/chain.h"
#include "base/list_appender.h"
#include "base/lock.h"
#include "base/owners.h"
#include "status/status_record.h"
#include "tarvio/error.h"
#include "util/log_macros.h"

using tarvio::ListAppender;
using tarvio::Lock;
using tarvio::StatusRecord;

tq_list_t* sl = nullptr;

namespace {

constexpr size_t kMessageSize = 1024;

// Guards `sl` and the records on it.
pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

// A record that cannot be copied, such as one without a detail, puts a null element on the list,
// which hides all after it (oddity 37).
void add_copy(const tq_status& status) {
  if (status.detail == nullptr) {
    TQ_DEBUG("Adding status %s %d NULL", status.name, status.state);
  } else {
    TQ_DEBUG("Adding status %s %d %s", status.name, status.state, status.detail);
  }
  StatusRecord copy = tarvio::copy_status(status);
  if (ListAppender(*sl).append(copy.get())) (void)copy.release();
}

void update(tq_status& stored, const tq_status& status) {
  stored.type = status.type;
  stored.state = status.state;
  tarvio::CString detail = tarvio::copy_of(status.detail);
  if (detail == nullptr) return;  // nothing to store: the old detail stays
  free(stored.detail);
  stored.detail = detail.release();
}

// Returns what is printed on standard output about it; null for an addition.
const char* set(const tq_status& status, bool force) {
  for (tq_status* stored : tarvio::Elements<tq_status>(sl)) {
    if (strcmp(stored->name, status.name) != 0) continue;
    // A later line of the log must not hide an error (oddity 35).
    if (!force && stored->state == TQ_STATE_ERROR) return "nothing to do with status";
    update(*stored, status);
    return "updating status";
  }
  add_copy(status);
  return nullptr;
}

int set_application_status(int32_t state, const char* name, const char* detail) {
  // The record is only read, so that it may borrow the caller's strings.
  const tq_status status = {.type = TQ_STATUS_TYPE_APPLICATION,
                            .id = 0,
                            .state = state,
                            .detail = const_cast<char*>(detail),
                            .name = const_cast<char*>(name),
                            .next = nullptr};
  return tq_set_status2(&status, 1);
}

int copy_all(int32_t /*wanted*/, const tq_list_t* source, tq_list_t* result) {
  ListAppender copies(*result);
  for (const tq_status* record : tarvio::Elements<const tq_status>(source)) {
    if (!copies.append(tarvio::copy_status(*record))) return TQ_ERR_STATUS_MEMORY;
  }
  return 0;
}

using Search = int (*)(int32_t wanted, const tq_list_t* source, tq_list_t* result);

// Fills a new list, which the caller gets in every case (oddity 39).
int find(const char* function, int failure, Search search, int32_t wanted, tq_list_t** list) {
  if (list == nullptr) return EINVAL;
  *list = tq_list_create();
  bool found = *list != nullptr;
  if (found) {
    const Lock lock(mutex);
    found = sl == nullptr || search(wanted, sl, *list) == 0;
  }
  if (found) return 0;
  char message[kMessageSize] = "";
  TQ_ERROR("%s: %s ", function, tq_strerror_r(failure, message, sizeof message));
  return failure;
}

void show_head(const char* function, const void* head) { TQ_INFO("%s: head=%p ", function, head); }

void show_record(const char* function, const tq_status& record) {
  TQ_INFO("%s: %p:[%d %d %d %s %s %p] ", function, static_cast<const void*>(&record), record.type,
          record.id, record.state, record.detail, record.name,
          static_cast<const void*>(record.next));
}

}  // namespace

// The list of an earlier set-up stays with whoever holds it (oddity 40).
int tq_setup_status_manager(void) {
  const Lock lock(mutex);
  sl = tq_list_create();
  return 0;
}

// Reports on standard output, and never in its result (oddity 36).
int tq_set_status2(const tq_status* status, int32_t force) {
  if (status == nullptr || status->name == nullptr) {
    TQ_WARNING("tq_set_status2: no name to set a status for");
    return 0;
  }
  const char* done = nullptr;
  {
    const Lock lock(mutex);
    if (sl == nullptr) {
      TQ_WARNING("tq_set_status2: status manager is not set up");
      return 0;
    }
    done = set(*status, force != 0);
  }
  if (done != nullptr) (void)puts(done);
  return 0;
}

// Does not look for the name (oddity 38).
int tq_add_status2(const tq_status* status) {
  if (status == nullptr) return EINVAL;
  StatusRecord copy = tarvio::copy_status(*status);
  if (copy == nullptr) return TQ_ERR_STATUS_MEMORY;
  const Lock lock(mutex);
  if (sl == nullptr) return EINVAL;
  return ListAppender(*sl).append(std::move(copy)) ? 0 : TQ_ERR_STATUS_MEMORY;
}

int tq_remove_status2(const char* name) {
  if (name == nullptr) return 0;
  const Lock lock(mutex);
  if (sl == nullptr) return 0;
  int32_t index = 0;
  for (tq_status* record : tarvio::Elements<tq_status>(sl)) {
    if (strcmp(record->name, name) == 0) {
      tq_list_remove(sl, index);
      tarvio::free_status(record);
      break;
    }
    ++index;
  }
  return 0;
}

int tq_find_all_status2(tq_list_t** list) {
  return find("tq_find_all_status2", TQ_ERR_STATUS_FIND_ALL, copy_all, 0, list);
}

int tq_find_by_type2(int32_t type, tq_list_t** list) {
  return find("tq_find_by_type2", TQ_ERR_STATUS_FIND_BY_TYPE, tq_search_tq_status_by_type2, type,
              list);
}

int tq_find_by_status2(int32_t state, tq_list_t** list) {
  return find("tq_find_by_status2", TQ_ERR_STATUS_FIND_BY_STATUS, tq_search_tq_status_by_state2,
              state, list);
}

int tq_set_application_status_normal(const char* name, const char* detail) {
  return set_application_status(TQ_STATE_NORMAL, name, detail);
}

int tq_set_application_status_error(const char* name, const char* detail) {
  return set_application_status(TQ_STATE_ERROR, name, detail);
}

int tq_remove_application_status(const char* name) { return tq_remove_status2(name); }

void show_list(const tq_status* head) {
  const Lock lock(mutex);
  show_head("show_list", head);
  for (const tq_status& record : tarvio::Chain<const tq_status>{head}) {
    show_record("show_list", record);
  }
}

void show_list2(const tq_list_t* list) {
  const Lock lock(mutex);
  show_head("show_list2", list);
  if (list == nullptr) return;
  for (const tq_status* record : tarvio::Elements<const tq_status>(list)) {
    show_record("show_list2", *record);
  }
}
