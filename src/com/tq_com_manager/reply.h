// The reply side of the protocol.
#ifndef TARVIO_SRC_COM_TQ_COM_MANAGER_REPLY_H
#define TARVIO_SRC_COM_TQ_COM_MANAGER_REPLY_H

#include <string.h>

#include <array>
#include <string_view>

#include "tarvio/list.h"

namespace tarvio {

// Collects a reply and sends it in pieces as large as possible. A piece that the peer does not take
// in time ends the reply.
class Reply {
 public:
  explicit Reply(int fd) : fd_(fd) {}

  // False, from then on, when the peer is gone or does not take a piece.
  bool append(std::string_view text) {
    if (text.size() > bytes_.size() - size_) return append_in_pieces(text);
    memcpy(bytes_.data() + size_, text.data(), text.size());
    size_ += text.size();
    return !failed_;
  }
  bool append_number(int number);
  bool send();

 private:
  bool append_in_pieces(std::string_view text);

  int fd_;
  bool failed_ = false;
  size_t size_ = 0;
  std::array<char, 4096> bytes_;
};

// Sends a status block per record, and releases the list and its records, the first one only with
// TQ_REPAIR_STATUS_RECORDS.
void tq_send_status_list(int fd, tq_list_t* list);

}  // namespace tarvio

#endif
