/* Leaks and endless retries that existing programs may rely on, and that a host can switch off for its
 * process. */
#ifndef TARVIO_REPAIRS_H
#define TARVIO_REPAIRS_H

#include "tarvio/base.h"

/* What tq_set_repairs repairs; a set of bits. */
enum {
  TQ_REPAIR_STATUS_RECORDS = 1, /* a reply to a status request leaves no record allocated */
  TQ_REPAIR_PROCESSES = 2, /* tq_create_process, and so tq_log_read, leaves no descriptors open */
  TQ_REPAIR_BOOT_TEST = 4, /* tq_is_boot_online closes its file when it cannot be read */
  TQ_REPAIR_RETRIES = 8,   /* tq_start_all_app and tq_stop_all_app end */
  TQ_REPAIR_ALL = 15       /* all of these */
};

TQ_BEGIN_DECLS

/* Chooses what is repaired in this process; at its begin nothing is. A host calls it once, before the
 * set-ups and before it has other threads: it is not serialised with the calls that it changes.
 *
 * flags  TQ_REPAIR_... bits; replaces those of an earlier call.
 *
 * - TQ_REPAIR_STATUS_RECORDS: the first record of the list is freed like the others.
 * - TQ_REPAIR_PROCESSES: there is no pipe without a use, neither in the caller nor in the child. When a
 *   pipe fails, those made before it are closed, and the descriptors stored for them become -1.
 * - TQ_REPAIR_BOOT_TEST: the result stays the same.
 * - TQ_REPAIR_RETRIES: an application that has failed three times in a row is left as it is, with its
 *   error status; the call says so in the log, as a warning, and goes on with the next one. The result
 *   is the code of the last failure, as without the repair.
 *
 * Returns 0; EINVAL (22) for an unknown bit, and nothing changes.
 * Source: util/tq_repairs */
int tq_set_repairs(unsigned flags);

TQ_END_DECLS

#endif
