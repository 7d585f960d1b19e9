// What the manager reports: on its standard streams and in the log. A warning goes to standard
// error.
#ifndef TARVIOD_WARN_H
#define TARVIOD_WARN_H

#include "runtime/conf_file.h"

namespace tarviod {

// The line is the caller's: the log names the place that found the mistake.
void warn(const char* what, const char* why, int line = __builtin_LINE());
inline void warn(const runtime::Mistake& mistake, int line = __builtin_LINE()) {
  warn(mistake.place, mistake.why, line);
}

// For a file that is to be written and cannot be opened, by errno. Returns false.
bool refuse_file(const char* path, int line = __builtin_LINE());

// What went well and was asked for: on standard output, and in the log at the level of a warning,
// since lower ones are not kept by default.
void inform(const char* what, const char* state, int line = __builtin_LINE());

}  // namespace tarviod

#endif
