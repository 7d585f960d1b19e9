// The reply side of the protocol.
#ifndef TARVIO_SRC_COM_TQ_COM_MANAGER_REPLY_H
#define TARVIO_SRC_COM_TQ_COM_MANAGER_REPLY_H

#include <string.h>

#include <array>
#include <string_view>

#include "tarvio/list.h"

namespace tarvio {

// Collects a reply and sends it in pieces as large as possible. A piece that is not taken within
// the time for a write ends the reply.
class Reply {
 public:
  explicit Reply(int fd) : fd_(fd) {}

  // False, then and ever after, when the peer is gone or takes nothing.
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

// Writes a status block per record and releases the list, and the records but for the first.
void tq_send_status_list(int fd, tq_list_t* list);

}  // namespace tarvio

#endif
