/* The list that the library keeps its collections in: singly linked, in insertion order, of pointers
 * that it does not own. */
#ifndef TARVIO_LIST_H
#define TARVIO_LIST_H

#include <stdint.h>

#include "tarvio/base.h"

/* A place in a list. */
typedef struct tq_list_node {
  struct tq_list_node *next; /* null at the tail */
  void *element;             /* the caller's */
} tq_list_node;

/* A list. These fields are all of it: a caller may read them, relink, add and take out nodes as long as
 * head and count are right, and make a list of its own, empty when all fields are 0. Only one of
 * tq_list_create goes to tq_list_free, and only nodes from malloc go to a call that frees nodes. */
typedef struct tq_list_t {
  tq_list_node *head;   /* null when empty */
  tq_list_node *cursor; /* the one iteration position, shared by all who walk the list */
  int32_t count;        /* number of nodes */
} tq_list_t;

TQ_BEGIN_DECLS

/* Returns a new, empty list without a cursor, or null when memory runs out. Release it with
 * tq_list_free.
 * Source: util/tq_list */
tq_list_t *tq_list_create(void);

/* Appends an element. The tail is found by a walk from the head, so appending n elements one by one
 * takes n * n steps.
 *
 * element  stored as given. A null element is stored too, but every walk ends at it.
 *
 * Returns 0, EINVAL (22) for a null list, ENOMEM (12) when memory runs out; the list is then as it was.
 * Source: util/tq_list */
int tq_list_add(tq_list_t *list, void *element);

/* Gets the element at an index counted from 0, without moving the cursor.
 *
 * element  receives the element, or null when there is none.
 *
 * Returns 0; EINVAL (22) for an index below 0 or not below the count, and for a null argument.
 * Source: util/tq_list */
int tq_list_get(const tq_list_t *list, int32_t index, void **element);

/* Returns the last node itself (not its element), or null when the list is empty or null.
 * Source: util/tq_list */
tq_list_node *tq_list_get_last(tq_list_t *list);

/* Moves the cursor to the first node and returns its element. An empty list gives null and keeps its
 * cursor where it was.
 * Source: util/tq_list */
void *tq_list_first(tq_list_t *list);

/* Moves the cursor to the next node and returns its element, or null at the end. Without a cursor
 * (before tq_list_first, or past the end) it returns null.
 * Source: util/tq_list */
void *tq_list_next(tq_list_t *list);

/* Returns the index of the first element that is this very pointer, or -1. Walks with the cursor, so it
 * moves it, and stops at an element that is null.
 * Source: util/tq_list */
int32_t tq_list_indexof(tq_list_t *list, const void *element);

/* Removes one node; the element is not freed, and the cursor is not adjusted: call tq_list_first after
 * removing the node under it.
 *
 * index  0 or less removes the first node, the number of nodes or more removes the last.
 *
 * Returns 0, or EINVAL (22) when the list is empty or null.
 * Source: util/tq_list */
int tq_list_remove(tq_list_t *list, int32_t index);

/* Returns the number of nodes; 0 for a null list.
 * Source: util/tq_list */
int32_t tq_list_size(const tq_list_t *list);

/* Frees the list.
 *
 * free_elements  not 0: each element is freed with free() first. A record that owns strings needs its
 *                own release, such as tq_status_list_free.
 *
 * Returns 0, also for a null list.
 * Source: util/tq_list */
int tq_list_free(tq_list_t *list, int free_elements);

TQ_END_DECLS

#endif
