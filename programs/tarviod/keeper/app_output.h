// What applications print, passed on to the system log.
#ifndef TARVIOD_APP_OUTPUT_H
#define TARVIOD_APP_OUTPUT_H

#include <sys/types.h>
#include <syslog.h>
#include <time.h>

#include <span>
#include <string_view>

#include "base/deadline.h"
#include "base/owners.h"
#include "keeper/datagram_queue.h"

namespace tarviod {

// Cuts what arrives into lines and sends each as a datagram to /dev/log, under the name and the
// process id of its application. Never waits: lines queue up while the log does not take them.
// Those that exceed kMaxLinesPerSecond of one pipe, or the queue, are lost, and a line in their
// place says how many.
class Output {
 public:
  static constexpr size_t kMaxPieceBytes = 1000;  // a longer line comes in pieces
  static constexpr int kMaxLinesPerSecond = 20'000;

  Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output();

  // False, with errno, when that failed.
  bool open();

  // Passes on what comes out of a pipe until its last writer has closed it.
  //
  // is_error  lines count as notices, else as information.
  //
  // False, with errno, when that failed: nothing is passed on.
  bool add(tarvio::Fd read_end, const char* name, pid_t pid, bool is_error);

  // Becomes readable when `handle` has something to do.
  [[nodiscard]] int fd() const { return events_.get(); }
  // When `handle` is to be called without that; never while nothing is queued or lost.
  [[nodiscard]] const tarvio::Deadline& due() const { return due_; }
  void handle();

  // No pipe is open, and all that came out of them has reached the log.
  [[nodiscard]] bool is_done() const { return streams_ == nullptr && queue_.is_empty(); }

 private:
  struct Stream;

  void take(Stream& stream);
  void pass_on(Stream& stream, std::span<char> line);
  void lose(Stream& stream, const char* why);
  bool report_loss(Stream& stream, DatagramQueue::Limit limit);
  void report_losses();
  void remove(Stream& stream);
  bool put(const char* priority, const Stream& stream, std::string_view text,
           DatagramQueue::Limit limit);
  void refresh_stamp();
  void send();
  bool connect();
  void wait_for_room(bool waits);
  void disconnect();

  tarvio::Fd events_;
  tarvio::Fd log_;
  bool is_full_ = false;         // the log, until it has room
  bool waits_for_room_ = false;  // events_ say when
  Stream* streams_ = nullptr;
  DatagramQueue queue_;
  tarvio::Deadline due_ = tarvio::Deadline::never();
  time_t stamped_ = 0;
  char stamp_[32] = "";
};

}  // namespace tarviod

#endif
