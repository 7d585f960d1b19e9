// Status records for a test to make, compare and release.
#ifndef TARVIO_TESTS_SUPPORT_STATUS_RECORDS_H
#define TARVIO_TESTS_SUPPORT_STATUS_RECORDS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "tarvio/list.h"
#include "tarvio/status.h"

namespace tarvio_test {

// What a record holds.
struct Status {
  std::string name;
  int32_t state = 0;
  int32_t type = 0;
  std::string detail = {};
  int32_t id = 0;

  bool operator==(const Status&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const Status& status) {
  return stream << "{" << status.name << " state " << status.state << " type " << status.type
                << " \"" << status.detail << "\" id " << status.id << "}";
}

inline Status status_of(const tq_status& record) {
  return {record.name, record.state, record.type, record.detail, record.id};
}

inline std::vector<Status> statuses_of(const tq_status* chain) {
  std::vector<Status> statuses;
  for (; chain != nullptr; chain = chain->next) statuses.push_back(status_of(*chain));
  return statuses;
}

// Up to an element that is null.
inline std::vector<Status> statuses_of(const tq_list_t* list) {
  std::vector<Status> statuses;
  for (const tq_list_node* node = list->head; node != nullptr && node->element != nullptr;
       node = node->next) {
    statuses.push_back(status_of(*static_cast<const tq_status*>(node->element)));
  }
  return statuses;
}

// A new record with this content, which the library made.
inline tq_status* new_record(const Status& status) {
  tq_status* record =
      tq_add_tq_status(status.state, status.type, status.name.c_str(), status.detail.c_str());
  record->id = status.id;
  return record;
}

// A chain whose records go with it.
class StatusChain {
 public:
  StatusChain() = default;
  explicit StatusChain(const std::vector<Status>& statuses) {
    tq_status** link = &head_;
    for (const Status& status : statuses) {
      *link = new_record(status);
      link = &(*link)->next;
    }
  }
  ~StatusChain() { tq_delete_tq_status_recurse(&head_); }
  StatusChain(const StatusChain&) = delete;
  StatusChain& operator=(const StatusChain&) = delete;

  tq_status* get() const { return head_; }
  tq_status** address() { return &head_; }
  std::vector<Status> statuses() const { return statuses_of(head_); }

 private:
  tq_status* head_ = nullptr;
};

// A list whose records go with it.
class StatusList {
 public:
  explicit StatusList(const std::vector<Status>& statuses = {}) : list_(tq_list_create()) {
    for (const Status& status : statuses) tq_list_add(list_, new_record(status));
  }
  ~StatusList() { tq_status_list_free(list_); }
  StatusList(const StatusList&) = delete;
  StatusList& operator=(const StatusList&) = delete;

  tq_list_t* get() const { return list_; }
  // Where a function stores a list of its own.
  tq_list_t** receive() {
    tq_status_list_free(list_);
    list_ = nullptr;
    return &list_;
  }
  std::vector<Status> statuses() const { return statuses_of(list_); }

 private:
  tq_list_t* list_;
};

}  // namespace tarvio_test

#endif
