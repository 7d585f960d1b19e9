#include "datagram_queue.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include <utility>

#include "base/pipe.h"

namespace tarviod {

namespace {

using Length = uint16_t;  // in front of each datagram

constexpr size_t kBlockBytes = 16UL * 1024;
constexpr int kMaxBlocks = 64;
constexpr unsigned kMaxBatch = 32;

}  // namespace

struct DatagramQueue::Block {
  static constexpr size_t kBytes = kBlockBytes - sizeof(void*) - 2 * sizeof(size_t);

  Block* next;
  size_t begin;  // of what is not yet sent
  size_t end;
  char bytes[kBytes];

  [[nodiscard]] Length length_at(size_t at) const {
    Length length = 0;
    memcpy(&length, bytes + at, sizeof length);
    return length;
  }
};

DatagramQueue::~DatagramQueue() {
  while (first_ != nullptr) free(std::exchange(first_, first_->next));
}

// A block at the end that has room, perhaps a new one; null when there is none.
DatagramQueue::Block* DatagramQueue::block_with(size_t bytes, Limit limit) {
  static_assert(sizeof(Length) + kMaxDatagramBytes <= Block::kBytes);
  const bool is_last_full = last_ == nullptr || last_->end + bytes > Block::kBytes;
  is_full_ = is_full_ || (is_last_full && blocks_ >= kMaxBlocks);
  if (is_full_ && limit == Limit::kMebibyte) return nullptr;
  if (!is_last_full) return last_;
  auto* block = static_cast<Block*>(malloc(sizeof(Block)));
  if (block == nullptr) return nullptr;
  block->next = nullptr;
  block->begin = block->end = 0;
  (last_ == nullptr ? first_ : last_->next) = block;
  last_ = block;
  ++blocks_;
  return block;
}

bool DatagramQueue::put(std::span<const std::string_view> parts, Limit limit) {
  Length length = 0;
  for (const std::string_view part : parts) length = static_cast<Length>(length + part.size());
  Block* block = block_with(sizeof length + length, limit);
  if (block == nullptr) return false;
  memcpy(block->bytes + block->end, &length, sizeof length);
  block->end += sizeof length;
  for (const std::string_view part : parts) {
    memcpy(block->bytes + block->end, part.data(), part.size());
    block->end += part.size();
  }
  return true;
}

bool DatagramQueue::send(int socket) {
  while (first_ != nullptr) {
    mmsghdr datagrams[kMaxBatch] = {};
    iovec bytes[kMaxBatch];
    unsigned count = 0;
    for (size_t at = first_->begin; at < first_->end && count < kMaxBatch; ++count) {
      bytes[count] = {first_->bytes + at + sizeof(Length), first_->length_at(at)};
      datagrams[count].msg_hdr.msg_iov = &bytes[count];
      datagrams[count].msg_hdr.msg_iovlen = 1;
      at += sizeof(Length) + bytes[count].iov_len;
    }
    const ssize_t sent = tarvio::retried(
        [&] { return sendmmsg(socket, datagrams, count, MSG_DONTWAIT | MSG_NOSIGNAL); });
    if (sent < 0) return false;
    drop(static_cast<unsigned>(sent));
  }
  return true;
}

// From the first block, which holds at least as many.
void DatagramQueue::drop(unsigned count) {
  for (; count > 0; --count) first_->begin += sizeof(Length) + first_->length_at(first_->begin);
  if (first_->begin < first_->end) return;
  Block* next = first_->next;
  free(first_);
  first_ = next;
  if (first_ == nullptr) last_ = nullptr;
  --blocks_;
  is_full_ = false;
}

}  // namespace tarviod
