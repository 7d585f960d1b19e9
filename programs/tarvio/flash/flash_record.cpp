#include "flash/flash_record.h"

#include <unistd.h>

#include <cstdio>
#include <type_traits>

#include "base/owners.h"
#include "base/pipe.h"
#include "terminal/words.h"

namespace client {

namespace {

constexpr int kNotMounted = -1;  // the library's code for a file system

static_assert(std::is_trivially_copyable_v<FlashRecord>);

template <size_t Size>
void copy(std::array<char, Size>& to, const char* text) {
  if (text != nullptr) (void)snprintf(to.data(), Size, "%s", text);
}

std::string_view bytes_of(const FlashRecord& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

const char* name_of(int32_t step) {
  switch (step) {
    case TQ_FLASH_CONTROLS:
      return "writing the control files";
    case TQ_FLASH_CUT:
      return "cutting the dump";
    case TQ_FLASH_REBUILD:
      return "building the image";
    case TQ_FLASH_PACK:
      return "packing";
    case TQ_FLASH_ERASE:
      return "erasing";
    case TQ_FLASH_WRITE:
      return "writing";
    default:
      return "reading";
  }
}

// What only this process knows. The result of a mount does not say why it failed: errno still does
// when the step ends. Nobody else sees the targets before they are packed and removed.
FlashRecord completed(FlashRecord record, int error) {
  const bool is_mount =
      record.kind == TQ_FLASH_END && record.step == TQ_FLASH_REBUILD && record.code == kNotMounted;
  if (is_mount) copy(record.line, strerror(error));
  if (record.kind != TQ_FLASH_BEGIN || record.step != TQ_FLASH_CONTROLS) return record;
  const tarvio::File targets(fopen("tqcontrol", "re"));
  if (targets != nullptr) (void)fread(record.line.data(), 1, record.line.size() - 1, targets.get());
  return record;
}

// A process that cannot report is of no use any more: the library starts no further tool then.
int report(const tq_flash_event* event, void* fd) {
  const int error = errno;
  const FlashRecord record = completed(record_of(*event), error);
  if (!tarvio::write_all(*static_cast<int*>(fd), bytes_of(record))) return errno;
  const bool is_done = event->kind == TQ_FLASH_END &&
                       (event->step == TQ_FLASH_PACK || event->step == TQ_FLASH_WRITE);
  if (is_done) (void)unlink(event->file);
  return 0;
}

}  // namespace

FlashRecord record_of(const tq_flash_event& event) {
  FlashRecord record = {
      .kind = event.kind, .step = event.step, .code = event.code, .bytes = event.bytes};
  copy(record.area, event.area);
  copy(record.file, event.file);
  copy(record.device, event.device);
  copy(record.line, event.line);
  return record;
}

void write_record(int fd, const FlashRecord& record) {
  if (!tarvio::write_all(fd, bytes_of(record))) {
    throw Failure::of_system("cannot report the result");
  }
}

Failure failure_of(const FlashRecord& record) {
  if (record.step == TQ_FLASH_REBUILD && record.code == kNotMounted) {
    return {EIO, std::string("cannot mount ") + record.device.data() + ": " + record.line.data()};
  }
  return {record.code, std::string(name_of(record.step)) + " failed: " + result_words(record.code)};
}

void RecordReader::feed(std::string_view piece) {
  rest_ += piece;
  size_t at = 0;
  for (FlashRecord record; rest_.size() - at >= sizeof record; at += sizeof record) {
    memcpy(&record, rest_.data() + at, sizeof record);
    on_record_(record);
  }
  rest_.erase(0, at);
}

RecordingObserver::RecordingObserver(int fd) : fd_(fd) {
  const tq_flash_observer observer = {report, &fd_};
  tq_set_flash_observer(&observer);
}

RecordingObserver::~RecordingObserver() { tq_set_flash_observer(nullptr); }

}  // namespace client
