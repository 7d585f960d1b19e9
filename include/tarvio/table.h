/* A table of string keys and values in insertion order, on a list. Keys and values are stored as
 * given. */
#ifndef TARVIO_TABLE_H
#define TARVIO_TABLE_H

#include <stdint.h>

#include "tarvio/base.h"
#include "tarvio/list.h"

/* A key and its value. */
typedef struct tq_table_pair {
  char *key;   /* as given to tq_table_put */
  void *value; /* the same */
} tq_table_pair;

/* A table. */
typedef struct tq_table {
  tq_list_t *pairs; /* elements are tq_table_pair; its cursor is the table's */
} tq_table;

TQ_BEGIN_DECLS

/* Returns a new, empty table, or null when memory runs out. Release it with tq_table_free.
 * Source: util/tq_table */
tq_table *tq_table_create(void);

/* Appends a pair. An earlier pair with an equal key stays, and remains the one that tq_table_get finds.
 *
 * key, value  stored as given; they stay the caller's until tq_table_free with its flag set. A pair with
 *             a null key is never found, and a walk ends at it.
 *
 * Returns 0, even if the pair cannot be allocated (nothing is added then); EINVAL (22) for a null
 * table.
 * Source: util/tq_table */
int tq_table_put(tq_table *table, char *key, void *value);

/* Returns the value of the first pair whose key equals the given one, or null. Moves the cursor.
 * Source: util/tq_table */
void *tq_table_get(tq_table *table, const char *key);

/* Moves the cursor to the first pair and returns its key (not its value), or null when there is none.
 * Source: util/tq_table */
char *tq_table_first(tq_table *table);

/* Moves the cursor to the next pair and returns its key, or null at the end.
 * Source: util/tq_table */
char *tq_table_next(tq_table *table);

/* Returns the number of pairs, those with equal keys included; 0 for a null table.
 * Source: util/tq_table */
int32_t tq_table_size(const tq_table *table);

/* Does nothing and returns 0: pairs stay for the life of the table.
 * Source: util/tq_table */
int tq_table_remove(tq_table *table, const char *key);

/* Frees the table.
 *
 * free_pairs  not 0: each key and then its value is freed with free().
 *
 * Returns 0, also for a null table.
 * Source: util/tq_table */
int tq_table_free(tq_table *table, int free_pairs);

TQ_END_DECLS

#endif
