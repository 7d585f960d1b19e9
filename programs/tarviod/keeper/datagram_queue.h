// Datagrams that wait until a socket takes them.
#ifndef TARVIOD_DATAGRAM_QUEUE_H
#define TARVIOD_DATAGRAM_QUEUE_H

#include <stddef.h>

#include <span>
#include <string_view>

namespace tarviod {

// Its memory, of a mebibyte at most, is there only while something is queued.
class DatagramQueue {
 public:
  static constexpr size_t kMaxDatagramBytes = 4096;

  enum class Limit { kMebibyte, kNone };

  DatagramQueue() = default;
  DatagramQueue(const DatagramQueue&) = delete;
  DatagramQueue& operator=(const DatagramQueue&) = delete;
  ~DatagramQueue();

  [[nodiscard]] bool is_empty() const { return first_ == nullptr; }

  // Queues the parts as one datagram, of at most kMaxDatagramBytes. False when memory runs out, or
  // the queue is full: then it takes none until much has been sent, lest short ones slip in
  // between long ones that are lost.
  bool put(std::span<const std::string_view> parts, Limit limit);

  // Sends without waiting, until all is sent. False, with errno, when the socket does not take the
  // next one.
  bool send(int socket);

 private:
  struct Block;

  Block* block_with(size_t bytes, Limit limit);
  void drop(unsigned count);

  Block* first_ = nullptr;
  Block* last_ = nullptr;
  int blocks_ = 0;
  bool is_full_ = false;
};

}  // namespace tarviod

#endif
