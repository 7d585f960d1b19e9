#ifndef TARVIO_SRC_UTIL_TQ_ERROR_UTIL_SYSTEM_MESSAGES_H
#define TARVIO_SRC_UTIL_TQ_ERROR_UTIL_SYSTEM_MESSAGES_H

#include <stdint.h>

namespace tarvio {

// The smallest errno value whose message occurs in the text; 0 when there is none, and also when
// the message of success occurs. The messages are the untranslated ones.
int32_t find_system_message(const char* text);

}  // namespace tarvio

#endif
