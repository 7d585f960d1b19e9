// What the library traces of its work on the flash memory: the steps, and the failures that its
// result hides.
#ifndef TARVIO_CLIENT_FLASH_FLASH_TRACE_H
#define TARVIO_CLIENT_FLASH_FLASH_TRACE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace client {

enum class FlashStep {
  kSaving,       // the next area of a backup
  kDumping,      // a part, into the file
  kUnreadable,   // a page of it: where on the device, in number
  kDumped,       // with the code in number
  kDumpBytes,    // the length of the dump, in number, before the library sets that
  kPacking,      // the area's file
  kLeft,         // the area, packed or failed
  kRestoring,    // the next area of a restore
  kErasing,      // a part
  kErased,       // with the code in number
  kWriting,      // a part, from the file
  kWritten,      // with the code in number
  kNotRestored,  // the area, or a part of it
};

struct FlashEvent {
  FlashStep step;
  std::string file;  // "./NAME"
  int64_t number = 0;
};

// What a line of the trace tells; none for one that does not matter here.
std::optional<FlashEvent> event_in(std::string_view line);

// Cuts what comes in pieces into lines, which it hands on without their line feeds.
class LineCutter {
 public:
  explicit LineCutter(std::function<void(const std::string&)> on_line)
      : on_line_(std::move(on_line)) {}
  void take(std::string_view piece);

 private:
  std::function<void(const std::string&)> on_line_;
  std::string rest_;
};

// In the process that calls the library: hands its trace on to a descriptor, line by line, and adds
// how long each dump is. The library sets the length of a dump to what it should be, right behind
// the line that tells its result: only here, within that line, can it be seen. Removes an area's
// file, which the library leaves, before the next step needs the room.
class TraceRelay {
 public:
  explicit TraceRelay(int fd);
  ~TraceRelay();
  TraceRelay(const TraceRelay&) = delete;
  TraceRelay& operator=(const TraceRelay&) = delete;

 private:
  void relay(const std::string& line);

  int fd_;
  LineCutter lines_;
  std::string dump_;    // the file
  std::string packed_;  // the area's file
  FILE* before_;
};

}  // namespace client

#endif
