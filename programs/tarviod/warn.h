// What the manager complains about: on standard error and in the log.
#ifndef TARVIOD_WARN_H
#define TARVIOD_WARN_H

namespace tarviod {

// The line is the caller's: the log names the place that found the mistake.
void warn(const char* what, const char* why, int line = __builtin_LINE());

}  // namespace tarviod

#endif
