/* Result codes, their messages, and the codes that a tool's output stands for. */
#ifndef TARVIO_ERROR_H
#define TARVIO_ERROR_H

#include <stddef.h>
#include <stdint.h>

#include "tarvio/base.h"
#include "tarvio/list.h"

/* The library's own codes. */
enum {
  TQ_ERR_BOOT = 10000,
  TQ_ERR_STATUS_INIT = 10001,
  TQ_ERR_STATUS_FIND_ALL = 10002,
  TQ_ERR_STATUS_FIND_BY_STATUS = 10003,
  TQ_ERR_STATUS_FIND_BY_TYPE = 10004,
  TQ_ERR_STATUS_ADD = 10005,
  TQ_ERR_STATUS_ADD_ID = 10006,
  TQ_ERR_STATUS_REMOVE = 10007,
  TQ_ERR_STATUS_CHANGE = 10008,
  TQ_ERR_STATUS_MEMORY = 10101,
  TQ_ERR_LOG_INIT = 10201,
  TQ_ERR_LOG_CHANGE_STATUS = 10202,
  TQ_ERR_PACKAGE_MALFORMED = 10301,
  TQ_ERR_PACKAGE_DEPENDENCY = 10302,
  TQ_ERR_PACKAGE_NO_SPACE = 10303,
  TQ_ERR_PACKAGE_UNSUPPORTED = 10304, /* has no row in tq_err_code_map: its text is empty */
  TQ_ERR_PACKAGE_OTHER = 10305
};

enum {
  TQ_ERR_CODE_MAP_SIZE = 16, /* rows of tq_err_code_map */
  TQ_OPKG_MESSAGES = 12      /* rows of opkgmes and opkgerr */
};

/* A code of the library and its message. */
typedef struct tq_err_code {
  int32_t code;        /* 10000 or above */
  const char *message; /* for people */
} tq_err_code;

TQ_BEGIN_DECLS

/* The library's own codes with their messages. */
extern const tq_err_code tq_err_code_map[TQ_ERR_CODE_MAP_SIZE];

/* Texts that opkg prints, and the code of a line that contains the text of the same row. */
extern const char *const opkgmes[TQ_OPKG_MESSAGES];
extern const int32_t opkgerr[TQ_OPKG_MESSAGES];

/* Fills a buffer with the text of a code.
 *
 * code    up to 9999: an errno value, negative ones included, whose text is the system's; above: a code
 *         of tq_err_code_map.
 * buffer  receives the text, truncated to length - 1 bytes, zero-terminated.
 * length  size of the buffer in bytes.
 *
 * Returns the buffer. A code above 9999 without a row leaves the whole buffer as it was, so clear it
 * before the call.
 * Source: util/tq_error_util */
char *tq_strerror_r(int32_t code, char *buffer, size_t length);

/* Returns the text of a code as a new string, to be freed with free(); empty for a code above 9999
 * without a row; null when memory runs out.
 * Source: util/tq_error_util */
char *tq_get_err_mes(int32_t code);

/* Finds a system error in a text.
 *
 * text  any string.
 *
 * Returns the smallest errno value whose system message (in the C locale) occurs in the text, or 0. The
 * message of success counts too: a text that contains it gives 0, whatever else it contains. A null text
 * gives 0.
 * Source: util/tq_error_util */
int32_t tq_get_contained_err(const char *text);

/* Judges what a tool printed: returns the first non-zero tq_get_contained_err over the lines, or 0.
 *
 * lines  strings; the line end of each line that is examined is removed in place, the lines after the
 *        deciding one are left as they are. A null list gives 0.
 *
 * Does not move the list's cursor.
 * Source: util/tq_error_util */
int32_t tq_check_command_result_error(tq_list_t *lines);

TQ_END_DECLS

#endif
