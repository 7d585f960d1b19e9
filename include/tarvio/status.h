/* Status records: what is known about one managed application. Records come in two forms of
 * collection: a chain linked through `next`, and a tq_list_t of record pointers (the functions whose
 * names end in "2"). */
#ifndef TARVIO_STATUS_H
#define TARVIO_STATUS_H

#include <stdint.h>

#include "tarvio/base.h"
#include "tarvio/list.h"

enum { TQ_STATUS_TYPE_APPLICATION = 0 };

enum {
  TQ_STATE_NORMAL = 0,
  TQ_STATE_THIRD = 1, /* set only through the log hooks */
  TQ_STATE_ERROR = 2  /* kept until a forced change */
};

/* A status record. */
typedef struct tq_status {
  int32_t type;           /* kind of item; 0 is an application */
  int32_t id;             /* 0 in a new record */
  int32_t state;          /* one of the states above */
  char *detail;           /* owned; explains the state */
  char *name;             /* owned; the key by which the manager finds the record */
  struct tq_status *next; /* of the chained form; null otherwise */
} tq_status;

TQ_BEGIN_DECLS

/* Returns a new record with id 0 that owns copies of name and detail, or null if one of them is null
 * or memory runs out. Release it with one of the delete calls, or free detail, name and record.
 * Source: status/tq_status_manager_helper */
tq_status *tq_add_tq_status(int32_t state, int32_t type, const char *name, const char *detail);

/* Appends a new record to a chain.
 *
 * head  address of the chain's head; an empty chain gets the record as its head.
 *
 * Returns 0; 10101 if no record could be created (a null name or detail included); EINVAL (22) for a null
 * head.
 * Source: status/tq_status_manager_helper */
int tq_create_tq_status(int32_t state, int32_t type, const char *name, const char *detail,
                        tq_status **head);

/* Copies a record. The copy's id is 0 and its next null.
 *
 * out  receives the copy, or null.
 *
 * Returns 0; 10101 if no copy could be created; EINVAL (22), with nothing stored, for a null argument.
 * Source: status/tq_status_manager_helper */
int tq_copy_tq_status(const tq_status *source, tq_status **out);

/* Returns the first record of a chain with this id, or null. The record stays in the chain.
 * Source: status/tq_status_manager_helper */
tq_status *tq_search_tq_status(tq_status *head, int32_t id);

/* Returns the record before the given one; null when that is the head or not in the chain.
 * Source: status/tq_status_manager_helper */
tq_status *previous_node(tq_status *head, const tq_status *record);

/* Appends a copy (id included) of every record of a chain that has this state, or this type, to another
 * chain, in order.
 *
 * result  address of the result chain's head.
 *
 * Returns 0; 10101 at the first copy that failed, and the copies so far stay in the result; EINVAL (22)
 * for a null result.
 * Source: status/tq_status_manager_helper */
int tq_search_tq_status_by_state(int32_t state, const tq_status *head, tq_status **result);
int tq_search_tq_status_by_type(int32_t type, const tq_status *head, tq_status **result);

/* The same from a list of records to another list. Does not move the cursors.
 *
 * Returns 0, 10101 at the first copy that failed, EINVAL (22) for a null list.
 * Source: status/tq_status_manager_helper */
int tq_search_tq_status_by_state2(int32_t state, const tq_list_t *source, tq_list_t *result);
int tq_search_tq_status_by_type2(int32_t type, const tq_list_t *source, tq_list_t *result);

/* Appends a copy (id included) of every record whose name contains a text to the list that is being
 * walked. Each copy matches again: if one record matches, the call continues until memory runs out.
 *
 * Returns 0 if nothing matched, 10101 if memory ran out, EINVAL (22) for a null argument.
 * Source: status/tq_status_manager_helper */
int tq_search_tq_status_by_name2(const char *text, tq_list_t *list);

/* Removes the head of a chain and frees it with its strings. Returns 0, also for an empty chain.
 * Source: status/tq_status_manager_helper */
int tq_delete_tq_status(tq_status **head);

/* Removes the record at a position and frees it with its strings.
 *
 * index  0 or less is the head; a position at or past the end removes nothing.
 *
 * Returns 0 in every case.
 * Source: status/tq_status_manager_helper */
int tq_delete_tq_status_index(tq_status **head, int32_t index);

/* Unlinks a record and frees the record alone: its detail and name stay the caller's. A null record, or
 * one that is not in the chain, does nothing. Returns 0.
 * Source: status/tq_status_manager_helper */
int tq_delete_tq_status_node(tq_status **head, tq_status *record);

/* Frees every record of a chain with its strings and sets the head to null. Returns 0.
 * Source: status/tq_status_manager_helper */
int tq_delete_tq_status_recurse(tq_status **head);

/* Frees a list of records with the records and their strings: the deep form of tq_list_free for what
 * the find functions of status_manager.h hand out. Returns 0, also for a null list.
 * Source: status/tq_status_manager_helper */
int tq_status_list_free(tq_list_t *list);

TQ_END_DECLS

#endif
