// g++ defines _GNU_SOURCE, which turns strerror_r into a variant that need not fill the buffer.
// This file stands alone so that nothing else loses its GNU declarations.
#undef _GNU_SOURCE
#define _POSIX_C_SOURCE 200809L

#include "util/tq_error_util/xsi_strerror.h"

#include <string.h>

namespace tarvio {

int xsi_strerror(int error, char* buffer, size_t length) {
  return strerror_r(error, buffer, length);
}

}  // namespace tarvio
