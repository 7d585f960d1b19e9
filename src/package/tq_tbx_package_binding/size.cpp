#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <array>
#include <optional>

#include "base/line_reader.h"
#include "base/owners.h"
#include "tarvio/file.h"
#include "tarvio/package.h"
#include "tarvio/tbx.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

namespace {

constexpr char kCheckSize[] = "tq_tbx_check_file_size";
constexpr std::array<const char*, 3> kMembers = {"control.tar.gz", "data.tar.gz", "debian-binary"};
constexpr size_t kPieceSize = 4096;
constexpr size_t kSizeField = 2;       // of a line of a verbose tar listing
constexpr size_t kAvailableField = 3;  // of a line of df, in blocks of 1024 bytes
constexpr uint32_t kBlockBytes = 1024;

// All sizes are 32-bit numbers that wrap around (oddity 82).
using Bytes = int32_t;

Bytes add(Bytes a, Bytes b) {
  return static_cast<Bytes>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

Bytes decimal(const char* text) { return static_cast<Bytes>(strtoll(text, nullptr, 10)); }

// A word of a line as a number; none when the line has too few words, and when memory runs out.
std::optional<Bytes> number_in(const char* line, size_t field) {
  const tarvio::Allocated<char*> words(tq_strtok(line, " "));
  if (words == nullptr) return std::nullopt;
  const tarvio::CString copy(words.get()[0]);
  for (size_t at = 0; at <= field; ++at) {
    if (words.get()[at] == nullptr) return std::nullopt;
  }
  return decimal(words.get()[field]);
}

// What a command prints, in the pieces that fgets would give.
class Output {
 public:
  // A command that cannot be started is one that cannot be read.
  explicit Output(const char* command)
      : stream_(popen(command, "re")),
        line_(tarvio::LineEnd::kLineFeed, room_),
        reader_(stream_ == nullptr ? -1 : fileno(stream_.get()), ahead_, line_) {}

  // Null at the end, and after an error.
  const char* next() { return reader_.next() ? line_.text() : nullptr; }
  [[nodiscard]] bool failed() const { return reader_.error() != 0; }

 private:
  tarvio::Stream stream_;
  char room_[kPieceSize];
  tarvio::ReadAhead ahead_;
  tarvio::LineCutter line_;
  tarvio::LineReader reader_;
};

// The sizes of all members of an archive together, from the output of a command that lists them.
std::optional<Bytes> measure(const char* command) {
  Output listing(command);
  Bytes sum = 0;
  while (const char* const line = listing.next()) {
    const std::optional<Bytes> size = number_in(line, kSizeField);
    if (!size) return std::nullopt;
    sum = add(sum, *size);
  }
  if (listing.failed()) return std::nullopt;
  return sum;
}

// Of the first file system that df lists (oddity 83); none when df cannot be started.
std::optional<Bytes> free_space() {
  Output output("df");
  (void)output.next();  // the heading
  const char* const line = output.next();
  if (output.failed()) return std::nullopt;
  if (line == nullptr) return 0;
  const uint32_t blocks = static_cast<uint32_t>(number_in(line, kAvailableField).value_or(0));
  return static_cast<Bytes>(blocks * kBlockBytes);
}

// Of the unpacked members in the current directory.
int compare_with_free_space() {
  const std::optional<Bytes> control = measure("tar ztvf control.tar.gz");
  if (!control || *control < 0) return -1;
  const std::optional<Bytes> data = measure("tar ztvf data.tar.gz");
  if (!data || *data < 0) return -1;
  const std::optional<Bytes> disk = free_space();
  if (!disk || *disk < 0) return -1;

  const Bytes total = add(*control, *data);
  TQ_DEBUG("%s: total=[%ld] bytes, control=[%ld] bytes, data=[%ld] bytes, disk=[%ld] bytes ",
           kCheckSize, static_cast<long>(total), static_cast<long>(*control),
           static_cast<long>(*data), static_cast<long>(*disk));
  return total <= *disk ? 0 : -1;
}

int unpack(const char* path) {
  char program[] = "ar";
  char key[] = "x";
  char* arguments[] = {program, key, const_cast<char*>(path), nullptr};  // only read
  return tq_run_command(3, arguments);
}

}  // namespace

int tq_tbx_check_file_size(const char* path) {
  if (path == nullptr) {
    TQ_DEBUG("%s: parameter is null ", kCheckSize);
    return -1;  // not an errno value (oddity 77)
  }
  int result = unpack(path);
  if (result != 0) {
    TQ_DEBUG("%s: %s - %d ", kCheckSize, "tbx extract error", result);
  } else {
    result = compare_with_free_space();
  }
  // Whether they were there before or not (oddity 84).
  for (const char* member : kMembers) (void)tq_file_delete(member);
  return result;
}
