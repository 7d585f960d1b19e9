/* The status manager: the one status list of the resident process. One mutex guards the list, so that
 * every function here may be called from any thread. */
#ifndef TARVIO_STATUS_MANAGER_H
#define TARVIO_STATUS_MANAGER_H

#include <stdint.h>

#include "tarvio/base.h"
#include "tarvio/list.h"
#include "tarvio/status.h"

TQ_BEGIN_DECLS

/* The status list: one tq_status per name, in the order in which they were first set. Null until
 * tq_setup_status_manager has run. Read it only while no other thread changes statuses. */
extern tq_list_t *sl;

/* Creates the status list. The host calls it once, before every other function here; a second call
 * starts with a new, empty list and loses the old one. Returns 0.
 * Source: status/tq_status_manager */
int tq_setup_status_manager(void);

/* Adds or updates the status of a name.
 *
 * status  name, type, state and detail are copied from it; it stays the caller's. A null detail keeps
 *         the old one in an update; in an addition it puts a null element on the list, after which no
 *         record is found any more: always give a detail.
 * force   0 leaves a stored error state (2) as it is.
 *
 * An update keeps the record's place, name and id, and prints "updating status" or, when it leaves an
 * error alone, "nothing to do with status" on standard output.
 *
 * Returns 0 in every case. A null status or name, and a call before set-up, change nothing and are
 * logged at level 2. A new name is not added if memory runs out for its place on the list.
 * Source: status/tq_status_manager */
int tq_set_status2(const tq_status *status, int32_t force);

/* Appends a copy of a record without looking for its name. Returns 0; 10101 if the copy failed (also
 * for a missing name or detail); EINVAL (22) for a null record and before set-up.
 * Source: status/tq_status_manager */
int tq_add_status2(const tq_status *status);

/* Removes the first record with this name and frees it with its strings. Returns 0, also when there is
 * none.
 * Source: status/tq_status_manager */
int tq_remove_status2(const char *name);

/* Gets copies of all records (with id 0), of those of one type, or of those in one state (ids kept).
 *
 * list  receives a new list at once, even if the call fails later; release it with
 *       tq_status_list_free. Null if memory runs out for the list itself.
 *
 * Returns 0; if a copy fails, 10002, 10004 or 10003 in the order of the functions, with the copies so
 * far in the list; EINVAL (22) for a null list argument. Before set-up the list is empty.
 * Source: status/tq_status_manager */
int tq_find_all_status2(tq_list_t **list);
int tq_find_by_type2(int32_t type, tq_list_t **list);
int tq_find_by_status2(int32_t state, tq_list_t **list);

/* Sets the status of an application to normal (0) or error (2), with force. Returns what tq_set_status2
 * returns.
 * Source: status/tq_status_manager */
int tq_set_application_status_normal(const char *name, const char *detail);
int tq_set_application_status_error(const char *name, const char *detail);

/* Removes the status of an application, as tq_remove_status2 does.
 * Source: status/tq_status_manager */
int tq_remove_application_status(const char *name);

/* Log a chain, or a list, of records at level 1 for debugging, one line for its head and one for each
 * record.
 * Source: status/tq_status_manager */
void show_list(const tq_status *head);
void show_list2(const tq_list_t *list);

TQ_END_DECLS

#endif
