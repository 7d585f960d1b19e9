#include "flash/flash_trace.h"

#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdio>

#include "process/failure.h"
#include "terminal/output.h"
#include "terminal/progress.h"

namespace client {

namespace {

constexpr std::string_view kDumpBytes = "dump of bytes ";

// What stands behind the beginning of a line.
enum class Rest { kNothing, kFile, kSourceAndFile, kFileAndTarget, kNumber };

struct LineRow {
  std::string_view beginning;
  FlashStep step;
  Rest rest;
};

// The first row that fits counts.
constexpr std::array<LineRow, 15> kLines = {{
    {"tbx backup done.", FlashStep::kLeft, Rest::kNothing},
    {"tbx backup /", FlashStep::kSaving, Rest::kNothing},
    {"tq_nanddump result ", FlashStep::kDumped, Rest::kNumber},
    {"tq_nanddump ", FlashStep::kDumping, Rest::kSourceAndFile},
    {"tq_mkfs_jffs2 result ", FlashStep::kDumped, Rest::kNumber},
    {"tq_mkfs_jffs2 ", FlashStep::kDumping, Rest::kSourceAndFile},
    {kDumpBytes, FlashStep::kDumpBytes, Rest::kNumber},
    {"archive area - ", FlashStep::kPacking, Rest::kFile},
    {"image type ", FlashStep::kRestoring, Rest::kNothing},
    {"tq_erase_flash_all result ", FlashStep::kErased, Rest::kNumber},
    {"tq_erase_flash total result ", FlashStep::kErased, Rest::kNumber},
    {"tq_restore flash image ", FlashStep::kErasing, Rest::kFileAndTarget},
    {"tq_nandwrite result ", FlashStep::kWritten, Rest::kNumber},
    {"tq_nandwrite ", FlashStep::kWriting, Rest::kFileAndTarget},
    {"cannot restore image filee ", FlashStep::kNotRestored, Rest::kNothing},
}};

std::string_view before(std::string_view text, std::string_view mark) {
  return text.substr(0, text.find(mark));
}

std::string_view behind(std::string_view text, std::string_view mark) {
  const size_t at = text.find(mark);
  return at == std::string_view::npos ? "" : text.substr(at + mark.size());
}

std::string file_in(std::string_view rest, Rest kind) {
  switch (kind) {
    case Rest::kFile:
      return std::string(before(rest, " "));
    case Rest::kSourceAndFile:
      return std::string(before(behind(rest, "->"), " "));
    case Rest::kFileAndTarget:
      return std::string(before(rest, "->"));
    default:
      return "";
  }
}

// nanddump goes on behind a page that the error correction could not help, with bytes that are not
// those written, and ends well.
std::optional<FlashEvent> unreadable_in(std::string_view line) {
  constexpr std::string_view kPlace = " uncorrectable bitflip(s) at offset 0x";
  if (!line.starts_with("\tcheck ECC: ")) return std::nullopt;
  const std::string_view place = behind(line, kPlace);
  FlashEvent event = {FlashStep::kUnreadable, ""};
  const auto read = std::from_chars(place.data(), place.data() + place.size(), event.number, 16);
  if (read.ec != std::errc()) return std::nullopt;
  return event;
}

}  // namespace

std::optional<FlashEvent> event_in(std::string_view line) {
  for (const LineRow& row : kLines) {
    if (!line.starts_with(row.beginning)) continue;
    const std::string_view rest = line.substr(row.beginning.size());
    FlashEvent event = {row.step, file_in(rest, row.rest)};
    if (row.rest == Rest::kNumber) {
      (void)std::from_chars(rest.data(), rest.data() + rest.size(), event.number);
    }
    return event;
  }
  return unreadable_in(line);
}

void LineCutter::take(std::string_view piece) {
  rest_ += piece;
  size_t begin = 0;
  for (size_t end = rest_.find('\n'); end != std::string::npos; end = rest_.find('\n', begin)) {
    on_line_(rest_.substr(begin, end - begin));
    begin = end + 1;
  }
  rest_.erase(0, begin);
}

TraceRelay::TraceRelay(int fd)
    : fd_(fd), lines_([this](const std::string& line) { relay(line); }), before_(stdout) {
  const cookie_io_functions_t functions = {
      .read = nullptr,
      .write =
          [](void* relay, const char* text, size_t size) {
            static_cast<TraceRelay*>(relay)->lines_.take({text, size});
            return static_cast<ssize_t>(size);
          },
      .seek = nullptr,
      .close = nullptr,
  };
  FILE* const stream = fopencookie(this, "w", functions);
  if (stream == nullptr) throw Failure::of_system("cannot follow the work");
  (void)setvbuf(stream, nullptr, _IOLBF, 0);
  stdout = stream;
}

TraceRelay::~TraceRelay() {
  (void)fclose(stdout);
  stdout = before_;
}

void TraceRelay::relay(const std::string& line) {
  (void)write_all(fd_, line + '\n');
  const std::optional<FlashEvent> event = event_in(line);
  if (!event) return;
  switch (event->step) {
    case FlashStep::kDumping:
      dump_ = event->file;
      return;
    case FlashStep::kDumped:
      (void)write_all(fd_, std::string(kDumpBytes) + std::to_string(size_of_file(dump_)) + '\n');
      return;
    case FlashStep::kPacking:
      packed_ = event->file;
      return;
    case FlashStep::kLeft:
      (void)unlink(packed_.c_str());
      return;
    default:
      return;
  }
}

}  // namespace client
