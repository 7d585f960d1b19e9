// The facility of the lines that applications print, which sets them apart from lines about
// applications.
#ifndef TARVIO_RUNTIME_OUTPUT_FACILITY_H
#define TARVIO_RUNTIME_OUTPUT_FACILITY_H

#include <syslog.h>

namespace runtime {

inline constexpr int kOutputFacility = LOG_LOCAL6;

}  // namespace runtime

#endif
