// What the library reports of its work on the flash, in the form that crosses a pipe.
#ifndef TARVIO_CLIENT_FLASH_FLASH_RECORD_H
#define TARVIO_CLIENT_FLASH_FLASH_RECORD_H

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "process/failure.h"
#include "tarvio/backup.h"

namespace client {

// A tq_flash_event with its strings, which are empty where the event has none.
struct FlashRecord {
  static constexpr int32_t kResult = 0;  // a kind of its own: the call has returned

  int32_t kind = kResult;
  int32_t step = 0;
  int32_t code = 0;
  uint64_t bytes = 0;
  std::array<char, 16> area = {};
  std::array<char, 32> file = {};
  std::array<char, 32> device = {};
  // Of a result: the words for its code. Of control files before they are packed: the tqcontrol.
  std::array<char, 256> line = {};
};

FlashRecord record_of(const tq_flash_event& event);

// Throws a Failure.
void write_record(int fd, const FlashRecord& record);

// Of a step that has ended with a code.
Failure failure_of(const FlashRecord& record);

// Puts the bytes of records together again, in whatever pieces they come.
class RecordReader {
 public:
  explicit RecordReader(std::function<void(const FlashRecord&)> on_record)
      : on_record_(std::move(on_record)) {}
  void feed(std::string_view piece);

 private:
  std::function<void(const FlashRecord&)> on_record_;
  std::string rest_;
};

// In the process that calls the library: writes a record of each report to a descriptor, and
// removes an area's file as soon as it is packed or written, before the next step needs the room.
class RecordingObserver {
 public:
  explicit RecordingObserver(int fd);
  ~RecordingObserver();
  RecordingObserver(const RecordingObserver&) = delete;
  RecordingObserver& operator=(const RecordingObserver&) = delete;

 private:
  int fd_;
};

}  // namespace client

#endif
