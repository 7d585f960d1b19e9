#include "com/tq_com_manager/request.h"

#include <errno.h>
#include <poll.h>

#include <span>

#include "tarvio/text.h"
#include "util/log_macros.h"

namespace tarvio {

namespace {

constexpr size_t kLineSize = 255;

enum class Line { kRead, kEnd, kLate };

// fgets for a stream that does not block: the same pieces, and a wait in between that ends with the
// deadline.
Line read_line(FILE* stream, const Deadline& deadline, std::span<char> buffer) {
  size_t stored = 0;
  while (stored < buffer.size() - 1) {
    const int byte = getc_unlocked(stream);
    if (byte == EOF) {
      if (feof(stream) != 0 || (errno != EAGAIN && errno != EINTR)) break;
      clearerr(stream);
      if (!wait_for(fileno(stream), POLLIN, deadline)) return Line::kLate;
      continue;
    }
    buffer[stored++] = static_cast<char>(byte);
    if (byte == '\n') break;
  }
  buffer[stored] = '\0';
  if (stored == 0) return Line::kEnd;
  return deadline.passed() ? Line::kLate : Line::kRead;
}

}  // namespace

bool read_request(FILE* stream, const Deadline& deadline, Request& request) {
  int lines = 0;
  char line[kLineSize];
  Line result = Line::kRead;
  while ((result = read_line(stream, deadline, line)) == Line::kRead) {
    TQ_DEBUG("receive line %s", tq_chop(line));
    if (++lines > 2) continue;
    char* copy = nullptr;
    tq_strdup(&copy, line);
    if (copy == nullptr) return false;
    (lines == 1 ? request.command : request.name).reset(copy);
  }
  return result == Line::kEnd;
}

}  // namespace tarvio
