#include "channel.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/pipe.h"

namespace agent {

namespace {

// A record is the number of its texts, and each with its length in front.
constexpr size_t kMaxTexts = 8;
constexpr size_t kMaxTextBytes = size_t{8} << 20U;

void add_number(std::string& bytes, size_t number) {
  const auto value = static_cast<uint32_t>(number);
  bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

// Takes a number from the front, if it is there.
std::optional<size_t> take_number(std::string_view& bytes, size_t most) {
  uint32_t value = 0;
  if (bytes.size() < sizeof value) return std::nullopt;
  std::memcpy(&value, bytes.data(), sizeof value);
  if (value > most) throw ChannelClosed();
  bytes.remove_prefix(sizeof value);
  return value;
}

}  // namespace

void Channel::send(const Record& record) {
  std::string bytes;
  add_number(bytes, record.size());
  for (const std::string& text : record) {
    add_number(bytes, text.size());
    bytes += text;
  }
  for (std::string_view rest = bytes; !rest.empty();) {
    const ssize_t count = tarvio::retried([&] {
      return ::send(socket_.get(), rest.data(), rest.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    });
    if (count >= 0) {
      rest.remove_prefix(static_cast<size_t>(count));
      continue;
    }
    if (errno != EAGAIN) throw ChannelClosed();
    pollfd file = {.fd = socket_.get(), .events = POLLIN | POLLOUT, .revents = 0};
    if (poll(&file, 1, -1) > 0 && (file.revents & ~POLLOUT) != 0) receive();
  }
}

void Channel::receive() {
  std::array<char, 65536> room;
  const ssize_t count =
      tarvio::retried([&] { return recv(socket_.get(), room.data(), room.size(), MSG_DONTWAIT); });
  if (count < 0 && errno == EAGAIN) return;
  if (count <= 0) throw ChannelClosed();
  bytes_.append(room.data(), static_cast<size_t>(count));
  has_received_ = true;
}

std::optional<Record> Channel::next() {
  has_received_ = false;  // unless there is one
  std::string_view rest = bytes_;
  const std::optional<size_t> count = take_number(rest, kMaxTexts);
  if (!count || *count == 0) return std::nullopt;
  Record record;
  while (record.size() < *count) {
    const std::optional<size_t> size = take_number(rest, kMaxTextBytes);
    if (!size || rest.size() < *size) return std::nullopt;
    record.emplace_back(rest.substr(0, *size));
    rest.remove_prefix(*size);
  }
  bytes_.erase(0, bytes_.size() - rest.size());
  has_received_ = true;
  return record;
}

}  // namespace agent
