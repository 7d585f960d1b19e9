#include "app_output.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <new>
#include <string_view>

#include "base/line_cutter.h"
#include "base/pipe.h"
#include "runtime/output_facility.h"

namespace tarviod {

namespace {

using Limit = DatagramQueue::Limit;

constexpr char kInfo[] = "<182>";
constexpr char kNotice[] = "<181>";
static_assert((runtime::kOutputFacility | LOG_INFO) == 182);
static_assert((runtime::kOutputFacility | LOG_NOTICE) == 181);

constexpr char kTooMany[] = "more than 20000 in a second";
constexpr char kQueueFull[] = "more than 1 MiB was waiting for the system log";
static_assert(Output::kMaxLinesPerSecond == 20'000);

constexpr size_t kReadBytes = 4096;
constexpr int kMaxEvents = 16;
constexpr int kRetryMs = 500;
constexpr int kSecondMs = 1000;

// Of UTF-8, within a character.
bool is_continuation(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; }

// Length of the line at the start of some bytes, its line end included, or of its first piece; 0
// when that depends on what follows.
size_t piece_length(std::string_view bytes) {
  constexpr size_t kMaxCharacterBytes = 4;
  const size_t line = tarvio::line_length(bytes, tarvio::LineEnd::kLineFeed);
  if (line != 0 && line <= Output::kMaxPieceBytes + 1) return line;
  if (bytes.size() <= Output::kMaxPieceBytes) return 0;
  size_t length = Output::kMaxPieceBytes;
  while (is_continuation(bytes[length])) {
    if (--length == Output::kMaxPieceBytes - kMaxCharacterBytes) return Output::kMaxPieceBytes;
  }
  return length;
}

// A zero byte would end a message for some log daemons and begin another one, and control bytes
// would reach terminals.
void blank_control_bytes(std::span<char> text) {
  std::replace_if(
      text.begin(), text.end(),
      [](char byte) {
        return (static_cast<unsigned char>(byte) < ' ' && byte != '\t') || byte == 0x7f;
      },
      ' ');
}

}  // namespace

struct Output::Stream {
  Stream* next = nullptr;
  tarvio::Fd pipe;
  const char* priority = kInfo;
  tarvio::CString ident;  // "NAME[PID]: "
  tarvio::CString begun;  // a line, as far as it has come
  size_t begun_bytes = 0;
  tarvio::Deadline second = tarvio::Deadline::after(kSecondMs);
  int lines = 0;  // in this second
  unsigned lost = 0;
  const char* lost_because = nullptr;

  // Moves the begun line to the front of a room, and says how long it is.
  size_t take_begun(char* room) {
    std::copy_n(begun.get(), begun_bytes, room);
    begun.reset();
    return std::exchange(begun_bytes, 0);
  }

  // False when memory runs out.
  bool keep(std::span<const char> bytes) {
    if (bytes.empty()) return true;
    begun.reset(static_cast<char*>(malloc(bytes.size())));
    if (begun == nullptr) return false;
    memcpy(begun.get(), bytes.data(), bytes.size());
    begun_bytes = bytes.size();
    return true;
  }
};

Output::~Output() {
  while (streams_ != nullptr) remove(*streams_);
}

bool Output::open() {
  events_.reset(epoll_create1(EPOLL_CLOEXEC));
  return events_.valid();
}

bool Output::add(tarvio::Fd read_end, const char* name, pid_t pid, bool is_error) {
  char* ident = nullptr;
  void* memory = malloc(sizeof(Stream));
  if (memory == nullptr || asprintf(&ident, "%s[%d]: ", name, static_cast<int>(pid)) < 0) {
    free(memory);
    errno = ENOMEM;
    return false;
  }
  auto* stream = new (memory) Stream;
  stream->next = streams_;
  stream->pipe = std::move(read_end);
  stream->priority = is_error ? kNotice : kInfo;
  stream->ident.reset(ident);
  streams_ = stream;
  epoll_event event = {.events = EPOLLIN, .data = {.ptr = stream}};
  if (epoll_ctl(events_.get(), EPOLL_CTL_ADD, stream->pipe.get(), &event) == 0) return true;
  const tarvio::ErrnoKeeper keeper;
  remove(*stream);
  return false;
}

void Output::handle() {
  if (due_.passed()) {
    due_ = tarvio::Deadline::never();
    is_full_ = false;
    send();  // before the reports, which set the next deadline while there is no room
    report_losses();
  }
  epoll_event events[kMaxEvents];
  const int count = epoll_wait(events_.get(), events, kMaxEvents, 0);
  for (int i = 0; i < count; ++i) {
    if (events[i].data.ptr == nullptr) {
      is_full_ = false;
    } else {
      take(*static_cast<Stream*>(events[i].data.ptr));
    }
    send();  // after each read, so that the queue fills only while the log does not keep up
  }
  send();
}

void Output::take(Stream& stream) {
  char room[kMaxPieceBytes + kReadBytes];
  const size_t begun = stream.take_begun(room);
  const ssize_t count = tarvio::read_some(stream.pipe.get(), {room + begun, kReadBytes});
  if (stream.second.passed()) {
    stream.second = tarvio::Deadline::after(kSecondMs);
    stream.lines = 0;
  }
  refresh_stamp();
  std::span<char> bytes(room, begun + static_cast<size_t>(std::max<ssize_t>(count, 0)));
  while (const size_t length = piece_length({bytes.data(), bytes.size()})) {
    pass_on(stream, bytes.first(length));
    bytes = bytes.subspan(length);
  }
  if (count > 0 && stream.keep(bytes)) return;
  if (!bytes.empty()) pass_on(stream, bytes);
  if (count <= 0) remove(stream);
}

void Output::pass_on(Stream& stream, std::span<char> line) {
  if (line.back() == '\n') {
    line = line.first(line.size() - 1);
    if (!line.empty() && line.back() == '\r') line = line.first(line.size() - 1);
  }
  blank_control_bytes(line);
  if (++stream.lines > kMaxLinesPerSecond) return lose(stream, kTooMany);
  if (!report_loss(stream, Limit::kMebibyte) ||
      !put(stream.priority, stream, {line.data(), line.size()}, Limit::kMebibyte)) {
    lose(stream, kQueueFull);
  }
}

void Output::lose(Stream& stream, const char* why) {
  ++stream.lost;
  stream.lost_because = why;
  if (!due_.is_set()) due_ = tarvio::Deadline::after(kSecondMs);
}

// Queues a line in the place of those that were lost; false when there is no room for it.
bool Output::report_loss(Stream& stream, Limit limit) {
  if (stream.lost == 0) return true;
  char text[96];
  (void)snprintf(text, sizeof text, "%u line%s lost: %s", stream.lost, stream.lost == 1 ? "" : "s",
                 stream.lost_because);
  if (!put(kNotice, stream, text, limit)) return false;
  stream.lost = 0;
  return true;
}

// Of those whose next line may be long in coming.
void Output::report_losses() {
  refresh_stamp();
  for (Stream* stream = streams_; stream != nullptr; stream = stream->next) {
    if (!report_loss(*stream, Limit::kMebibyte)) due_ = tarvio::Deadline::after(kSecondMs);
  }
}

void Output::remove(Stream& stream) {
  (void)report_loss(stream, Limit::kNone);
  Stream** place = &streams_;
  while (*place != &stream) place = &(*place)->next;
  *place = stream.next;
  // Not left to the closing: a child that is about to execute a program still holds the pipe.
  (void)epoll_ctl(events_.get(), EPOLL_CTL_DEL, stream.pipe.get(), nullptr);
  stream.~Stream();
  free(&stream);
}

bool Output::put(const char* priority, const Stream& stream, std::string_view text, Limit limit) {
  const std::string_view parts[] = {priority, stamp_, stream.ident.get(), text};
  return queue_.put(parts, limit);
}

void Output::refresh_stamp() {
  const time_t now = time(nullptr);
  if (now == stamped_) return;
  stamped_ = now;
  tm local = {};
  (void)strftime(stamp_, sizeof stamp_, "%b %e %T ", localtime_r(&now, &local));
}

void Output::send() {
  if (queue_.is_empty() || is_full_ || !connect()) return;
  if (queue_.send(log_.get())) return wait_for_room(false);
  is_full_ = errno == EAGAIN;
  if (is_full_) {
    wait_for_room(true);
  } else {
    disconnect();
  }
}

// Tries at most once until due: the log daemon may be missing for long.
bool Output::connect() {
  if (log_.valid()) return true;
  if (due_.is_set()) return false;
  log_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = _PATH_LOG};
  if (log_.valid() &&
      ::connect(log_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return true;
  }
  disconnect();
  return false;
}

void Output::disconnect() {
  wait_for_room(false);
  log_.reset();
  due_ = tarvio::Deadline::after(kRetryMs);
}

void Output::wait_for_room(bool waits) {
  if (waits == waits_for_room_) return;
  epoll_event event = {.events = EPOLLOUT, .data = {.ptr = nullptr}};
  const int change = waits ? EPOLL_CTL_ADD : EPOLL_CTL_DEL;
  if (epoll_ctl(events_.get(), change, log_.get(), &event) == 0) {
    waits_for_room_ = waits;
  } else {
    due_ = tarvio::Deadline::after(kRetryMs);
  }
}

}  // namespace tarviod
