// Records that stay at their place in memory, in the order in which they were added.
#ifndef TARVIOD_RECORD_LIST_H
#define TARVIOD_RECORD_LIST_H

#include <stdlib.h>

#include <memory>
#include <new>
#include <utility>

#include "base/chain.h"

namespace tarviod {

// A record has a `next` for the list.
template <typename Record>
class RecordList {
 public:
  RecordList() = default;
  RecordList(const RecordList&) = delete;
  RecordList& operator=(const RecordList&) = delete;
  ~RecordList() {
    while (head_ != nullptr) {
      Record* const record = std::exchange(head_, head_->next);
      std::destroy_at(record);
      free(record);
    }
  }

  // Null, with errno, when memory runs out.
  Record* append() {
    void* const room = malloc(sizeof(Record));
    if (room == nullptr) return nullptr;
    Record* const record = ::new (room) Record{};
    (tail_ == nullptr ? head_ : tail_->next) = record;
    return tail_ = record;
  }

  [[nodiscard]] Record* first() const { return head_; }
  [[nodiscard]] auto begin() const { return tarvio::Chain<Record>{head_}.begin(); }
  [[nodiscard]] auto end() const { return tarvio::Chain<Record>{head_}.end(); }

 private:
  Record* head_ = nullptr;
  Record* tail_ = nullptr;
};

}  // namespace tarviod

#endif
