// What the manager complains about: on standard error and in the log.
#ifndef TARVIOD_WARN_H
#define TARVIOD_WARN_H

namespace tarviod {

inline constexpr char kSource[] = "tarviod";

void warn(const char* what, const char* why);

}  // namespace tarviod

#endif
