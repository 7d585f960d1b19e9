#include "util/tq_error_util/system_messages.h"

#include <errno.h>
#include <pthread.h>
#include <string.h>

#include <array>

namespace tarvio {
namespace {

constexpr int kHighestErrno = EHWPOISON;  // of Linux
constexpr int16_t kNone = INT16_MAX;

// A tool may print 100,000 lines, and there are over 130 messages. Few bytes begin one, so messages
// are kept by their first byte, and one pass over a text replaces a search for each message.
class MessageIndex {
 public:
  void fill() {
    by_first_byte_.fill(kNone);
    // From the highest down, so that each chain ascends and a search may stop at the smallest
    // found.
    for (int16_t error = kHighestErrno; error >= 0; --error) {
      const char* text = strerrordesc_np(error);
      if (text == nullptr) continue;  // a number that is not assigned
      int16_t& first = by_first_byte_[static_cast<unsigned char>(*text)];
      messages_[static_cast<size_t>(error)] = {.text = text, .length = strlen(text), .next = first};
      first = error;
    }
  }

  [[nodiscard]] int16_t smallest_in(const char* text) const {
    int16_t smallest = kNone;
    for (; *text != '\0'; ++text) {
      for (int16_t error = by_first_byte_[static_cast<unsigned char>(*text)]; error < smallest;) {
        const Message& message = messages_[static_cast<size_t>(error)];
        if (strncmp(text, message.text, message.length) == 0) smallest = error;
        error = message.next;
      }
    }
    return smallest;
  }

 private:
  struct Message {
    const char* text;
    size_t length;
    int16_t next;  // the next error whose message begins with the same byte
  };

  std::array<int16_t, UINT8_MAX + 1> by_first_byte_;
  std::array<Message, kHighestErrno + 1> messages_;
};

constinit MessageIndex index_of_messages = {};
pthread_once_t index_is_filled = PTHREAD_ONCE_INIT;

}  // namespace

int32_t find_system_message(const char* text) {
  (void)pthread_once(&index_is_filled, [] { index_of_messages.fill(); });
  const int16_t error = index_of_messages.smallest_in(text);
  return error == kNone ? 0 : error;
}

}  // namespace tarvio
