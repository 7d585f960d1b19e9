#include "com/tq_com_manager/request.h"

#include <errno.h>
#include <string.h>

#include "base/line_reader.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

namespace tarvio {

bool Request::read(int fd, const Deadline& deadline) {
  ReadAhead ahead;
  char room[kLineSize];
  LineCutter line(LineEnd::kLineFeed, room);
  LineReader reader(fd, ahead, line, deadline);
  while (reader.next()) {
    TQ_DEBUG("receive line %s", tq_chop(line.text()));
    if (count_ < lines_.size()) (void)stpcpy(lines_[count_++].data(), line.text());
  }
  return reader.error() != ETIMEDOUT;
}

}  // namespace tarvio
