#ifndef TARVIO_SRC_UTIL_OPERAND_H
#define TARVIO_SRC_UTIL_OPERAND_H

#include "util/log_macros.h"

namespace tarvio {

// Whether a path or name can stand in a command line: the shell gets it without quotes, and it must
// neither become a command nor an option there. Returns 0, or EINVAL with a warning that names the
// function.
int check_operand(LogPlace caller, const char* function, const char* operand);

}  // namespace tarvio

#endif
