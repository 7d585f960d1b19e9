#include "com/tq_com_manager/reply.h"

#include <algorithm>

#include "base/chain.h"
#include "base/deadline.h"
#include "base/decimal.h"
#include "tarvio/status.h"
#include "util/log_macros.h"
#include "util/tq_repairs.h"

namespace tarvio {

namespace {

constexpr int kWriteTimeMs = 5000;

// The first record of every list stays allocated (oddity 122).
void free_statuses(tq_list_t* list) {
  tq_list_node* node = list->head;
  if (node != nullptr && !is_repaired(TQ_REPAIR_STATUS_RECORDS)) node = node->next;
  for (tq_status* record : Elements<tq_status>(node)) tq_delete_tq_status(&record);
  tq_list_free(list, 0);
}

bool append_block(Reply& reply, const tq_status& record) {
  return reply.append(record.name) && reply.append("\n") && reply.append_number(record.state) &&
         reply.append("\n") && reply.append(record.detail) && reply.append("\n");
}

}  // namespace

bool Reply::append_in_pieces(std::string_view text) {
  while (!text.empty() && !failed_) {
    if (size_ == bytes_.size() && !send()) break;
    const size_t count = std::min(text.size(), bytes_.size() - size_);
    memcpy(bytes_.data() + size_, text.data(), count);
    size_ += count;
    text.remove_prefix(count);
  }
  return !failed_;
}

bool Reply::append_number(int number) { return append(Decimal(number).text()); }

bool Reply::send() {
  if (!failed_) failed_ = !send_all(fd_, {bytes_.data(), size_}, Deadline::after(kWriteTimeMs));
  size_ = 0;
  return !failed_;
}

void tq_send_status_list(int fd, tq_list_t* list) {
  Reply reply(fd);
  TQ_DEBUG("list first");
  for (const tq_status* record : Elements<const tq_status>(list)) {
    TQ_DEBUG("sending status of %s", record->name);
    if (!append_block(reply, *record)) break;
    TQ_DEBUG("sending status of %s done", record->name);
    TQ_DEBUG("sending status of %s next done", record->name);
  }
  free_statuses(list);
  // Just before the end of the connection, so that the client wakes once for both.
  (void)reply.send();
  TQ_DEBUG("sending status done");
}

}  // namespace tarvio
