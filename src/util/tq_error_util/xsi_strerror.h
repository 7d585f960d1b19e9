#ifndef TARVIO_SRC_UTIL_TQ_ERROR_UTIL_XSI_STRERROR_H
#define TARVIO_SRC_UTIL_TQ_ERROR_UTIL_XSI_STRERROR_H

#include <stddef.h>

namespace tarvio {

// Fills the buffer with the system's text for an errno value: the strerror_r of POSIX, which always
// writes into the buffer. Returns 0 or an errno value.
int xsi_strerror(int error, char* buffer, size_t length);

}  // namespace tarvio

#endif
