// The texts of log lines.
#ifndef TARVIOD_LOG_TEXT_H
#define TARVIOD_LOG_TEXT_H

#include "log_report.h"

namespace tarviod {

// Puts the pieces of one line together, as far as there is room.
class LineText {
 public:
  void clear() { length_ = 0, text_[0] = '\0'; }
  void append(const char* piece);
  [[nodiscard]] const char* get() const { return text_; }

 private:
  size_t length_ = 0;
  char text_[kMostLineBytes] = "";
};

// Whether a piece is the last one of a line: it has the line end, or was cut by a zero byte. The
// last piece of all may also be the begin of a line that is not written to its end yet.
bool ends_line(const char* piece, bool is_last_of_all);

// Makes the detail of a status out of a message: without blanks at its ends and control bytes,
// which would end the line in an answer to a client.
void make_detail(const char* message, char (&detail)[kMostDetailBytes + 1]);

}  // namespace tarviod

#endif
