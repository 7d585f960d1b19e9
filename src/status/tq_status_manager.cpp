#include "tarvio/status_manager.h"

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>

#include "base/chain.h"
#include "base/lock.h"
#include "base/owners.h"
#include "tarvio/error.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

using tarvio::Lock;

tq_list_t* sl = nullptr;

namespace {

constexpr size_t kMessageSize = 1024;

// Guards `sl` and the records on it.
pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

enum class Change { kAdded, kUpdated, kErrorKept };

// The result of the copy is not looked at, on purpose: a record without a detail, which cannot be
// copied, puts a null element on the list.
void add_copy(const tq_status& status) {
  if (status.detail == nullptr) {
    TQ_DEBUG("Adding status %s %d NULL", status.name, status.state);
  } else {
    TQ_DEBUG("Adding status %s %d %s", status.name, status.state, status.detail);
  }
  tq_status* copy = nullptr;
  tq_copy_tq_status(&status, &copy);
  if (tq_list_add(sl, copy) != 0) tq_delete_tq_status(&copy);
}

void update(tq_status& stored, const tq_status& status) {
  stored.type = status.type;
  stored.state = status.state;
  char* detail = nullptr;
  tq_strdup(&detail, status.detail);
  if (detail == nullptr) return;  // nothing to store: the old detail stays
  free(stored.detail);
  stored.detail = detail;
}

Change set(const tq_status& status, bool force) {
  for (tq_status* stored : tarvio::Elements<tq_status>(sl)) {
    if (strcmp(stored->name, status.name) != 0) continue;
    if (!force && stored->state == TQ_STATE_ERROR) return Change::kErrorKept;
    update(*stored, status);
    return Change::kUpdated;
  }
  add_copy(status);
  return Change::kAdded;
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

int copy_all(const tq_list_t* source, tq_list_t* result) {
  for (const tq_status* record : tarvio::Elements<const tq_status>(source)) {
    tq_status* copy = nullptr;
    const int code = tq_copy_tq_status(record, &copy);
    if (code != 0) return code;
    if (tq_list_add(result, copy) != 0) {
      tq_delete_tq_status(&copy);
      return TQ_ERR_STATUS_MEMORY;
    }
  }
  return 0;
}

int find(const char* function, int failure, tq_list_t** list, auto search) {
  if (list == nullptr) return EINVAL;
  *list = tq_list_create();
  bool found = *list != nullptr;
  if (found) {
    const Lock lock(mutex);
    found = sl == nullptr || search(sl, *list) == 0;
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

int tq_setup_status_manager(void) {
  const Lock lock(mutex);
  sl = tq_list_create();
  return 0;
}

int tq_set_status2(const tq_status* status, int32_t force) {
  if (status == nullptr || status->name == nullptr) {
    TQ_WARNING("tq_set_status2: no name to set a status for");
    return 0;
  }
  Change change = Change::kAdded;
  {
    const Lock lock(mutex);
    if (sl == nullptr) {
      TQ_WARNING("tq_set_status2: status manager is not set up");
      return 0;
    }
    change = set(*status, force != 0);
  }
  if (change == Change::kErrorKept) (void)puts("nothing to do with status");
  if (change == Change::kUpdated) (void)puts("updating status");
  return 0;
}

int tq_add_status2(const tq_status* status) {
  tq_status* copy = nullptr;
  if (status == nullptr) return EINVAL;
  const int code = tq_copy_tq_status(status, &copy);
  if (code != 0) return code;
  const Lock lock(mutex);
  const int added = tq_list_add(sl, copy);
  if (added == 0) return 0;
  tq_delete_tq_status(&copy);
  return added == ENOMEM ? TQ_ERR_STATUS_MEMORY : added;
}

int tq_remove_status2(const char* name) {
  if (name == nullptr) return 0;
  const Lock lock(mutex);
  if (sl == nullptr) return 0;
  int32_t index = 0;
  for (tq_status* record : tarvio::Elements<tq_status>(sl)) {
    if (strcmp(record->name, name) == 0) {
      tq_list_remove(sl, index);
      tq_delete_tq_status(&record);
      break;
    }
    ++index;
  }
  return 0;
}

int tq_find_all_status2(tq_list_t** list) {
  return find("tq_find_all_status2", TQ_ERR_STATUS_FIND_ALL, list, copy_all);
}

int tq_find_by_type2(int32_t type, tq_list_t** list) {
  return find("tq_find_by_type2", TQ_ERR_STATUS_FIND_BY_TYPE, list,
              [type](const tq_list_t* source, tq_list_t* result) {
                return tq_search_tq_status_by_type2(type, source, result);
              });
}

int tq_find_by_status2(int32_t state, tq_list_t** list) {
  return find("tq_find_by_status2", TQ_ERR_STATUS_FIND_BY_STATUS, list,
              [state](const tq_list_t* source, tq_list_t* result) {
                return tq_search_tq_status_by_state2(state, source, result);
              });
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
