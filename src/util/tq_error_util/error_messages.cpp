#include <errno.h>
#include <stdio.h>

#include "base/chain.h"
#include "base/owners.h"
#include "tarvio/error.h"
#include "tarvio/text.h"
#include "util/log_macros.h"
#include "util/tq_error_util/system_messages.h"
#include "util/tq_error_util/xsi_strerror.h"

namespace {

constexpr int32_t kHighestSystemCode = 9999;
constexpr size_t kMessageSize = 256;

// The second text replaces the first, and is spelled so (oddity 8).
void write_unknown(int32_t code, char* buffer, size_t length) {
  if (snprintf(buffer, length, "tq_strerror buffer overflow for %d", code) < 0) errno = ERANGE;
  if (snprintf(buffer, length, "Unkown error %d", code) < 0) errno = EINVAL;
}

}  // namespace

char* tq_strerror_r(int32_t code, char* buffer, size_t length) {
  if (buffer == nullptr || length == 0) return buffer;
  if (code <= kHighestSystemCode) {
    (void)tarvio::xsi_strerror(code, buffer, length);  // an unknown code has a text too
    return buffer;
  }
  // An own code without a row leaves the buffer as the caller gave it (oddity 7).
  for (const tq_err_code& row : tq_err_code_map) {
    if (row.code != code) continue;
    if (snprintf(buffer, length, "%s", row.message) < 0) write_unknown(code, buffer, length);
  }
  return buffer;
}

char* tq_get_err_mes(int32_t code) {
  char buffer[kMessageSize] = "";
  return tarvio::copy_of(tq_strerror_r(code, buffer, sizeof buffer)).release();
}

int32_t tq_get_contained_err(const char* text) {
  return text == nullptr ? 0 : tarvio::find_system_message(text);
}

int32_t tq_check_command_result_error(tq_list_t* lines) {
  if (lines == nullptr) return 0;
  TQ_DEBUG("check command result - %d checks  ", lines->count);
  for (char* line : tarvio::Elements<char>(lines)) {
    const int32_t result = tq_get_contained_err(line);
    tq_chop(line);
    TQ_DEBUG("\tcheck %s - result %d ", line, result);
    if (result != 0) return result;
  }
  return 0;
}
