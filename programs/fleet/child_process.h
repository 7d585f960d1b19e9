// A program that is run for a request, without a wait for it.
#ifndef TARVIO_FLEET_CHILD_PROCESS_H
#define TARVIO_FLEET_CHILD_PROCESS_H

#include <poll.h>
#include <sys/types.h>

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/owners.h"

namespace fleet {

struct ChildEnd {
  int status = 0;  // its exit status; 128 and the number of the signal that ended it
  std::string output;
  std::string errors;
  bool is_cut = false;  // the output, which was too long
};

// What it has said on standard error, without the name of the program in front and without the end
// of the line.
std::string message_in(const ChildEnd& end, const std::string& program);

class ChildProcess {
 public:
  static constexpr size_t kFiles = 2;

  // Starts it, without a shell and with an empty standard input. Throws std::runtime_error.
  //
  // on_line  is given each line of the output in place of keeping it; empty for none.
  explicit ChildProcess(const std::vector<std::string>& words,
                        std::function<void(std::string_view)> on_line = {});
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  [[nodiscard]] pid_t pid() const { return pid_; }

  // What to wait for.
  void list(pollfd* files) const;
  // Reads; returns its end, once.
  std::optional<ChildEnd> step();

 private:
  struct Stream {
    tarvio::Fd fd;
    std::string text;
    bool is_cut = false;
  };

  static void read(Stream& stream);
  void take_lines();

  pid_t pid_ = -1;
  std::array<Stream, kFiles> streams_;  // output, errors
  std::function<void(std::string_view)> on_line_;
};

}  // namespace fleet

#endif
