/* Files of lines with a key, a colon and a value. Two grammars: that of package control files
 * (tq_conf_open) and that of general configuration files (tq_conf_open2). */
#ifndef TARVIO_CONF_H
#define TARVIO_CONF_H

#include <stdint.h>

#include "tarvio/base.h"

/* A pair; both strings belong to the object. */
typedef struct tq_conf_pair {
  char *name;  /* unique in the object */
  char *value; /* may be empty */
} tq_conf_pair;

/* The pairs of one file, in the order in which their names were first stored; names are unique. */
typedef struct tq_conf {
  int32_t count;       /* number of pairs */
  tq_conf_pair *pairs; /* null while count is 0 */
} tq_conf;

TQ_BEGIN_DECLS

/* Reads a package control file.
 *
 * path  a regular file of at most 128 MiB.
 *
 * A line counts when it is longer than one character and holds a colon followed by a blank; it is split
 * at colons and blanks, its first word is the name and its second the value, so that a value is one
 * word ("Description: two words" gives "two") and "Installed Size: 100" gives "Installed" the value
 * "Size". Lines are read in pieces of at most 255 bytes, each a line of its own. A repeated name
 * replaces the value. Reading ends after 10000 pairs.
 *
 * Returns a new object for tq_conf_close; null if the path is not such a file, cannot be opened or
 * holds no pair, and if memory runs out for the object. A pair for which memory runs out is omitted.
 * Source: util/tq_load_conf */
tq_conf *tq_conf_open(const char *path);

/* Reads a general configuration file.
 *
 * Lines may have any length and end with a line feed, a carriage return or both. A number sign or a
 * semicolon anywhere in a line begins a comment. Key and value are separated by the first colon; of
 * several words before it the last is the key, of several words after it the last is the value, which
 * may be empty. A repeated key replaces the value.
 *
 * Returns a new object for tq_conf_close, without pairs for an empty file; null if the file cannot be
 * opened, if a line that is not empty has no colon, and if memory runs out for the object. A read error
 * counts as the end of the file, so a directory gives an object without pairs. If memory runs out for a
 * line, the pairs read so far are returned; a pair for which it runs out is omitted.
 * Source: util/tq_load_conf */
tq_conf *tq_conf_open2(const char *path);

/* Returns the value of a name, which belongs to the object and is valid until that value is written or
 * the object is closed. A missing name, or a null argument, gives the empty string, never null.
 * Source: util/tq_load_conf */
const char *tq_conf_read(const tq_conf *conf, const char *name);

/* Stores a copy of a value under a name; a new name is copied and appended. The value may be one that
 * the object owns.
 *
 * Returns 0, EINVAL (22) for a null argument, ENOMEM (12) if memory runs out, with nothing changed.
 * Source: util/tq_load_conf */
int tq_conf_write(tq_conf *conf, const char *name, const char *value);

/* Returns the number of pairs; 0 for a null object.
 * Source: util/tq_load_conf */
int32_t tq_count_variables(const tq_conf *conf);

/* Returns the name, and the value, of a pair. Both belong to the object.
 *
 * index  0 to tq_count_variables - 1; neither it nor the object is checked.
 * Source: util/tq_load_conf */
const char *tq_find_name(const tq_conf *conf, int32_t index);
const char *tq_find_value(const tq_conf *conf, int32_t index);

/* Frees the object with its pairs. Returns 0, also for null.
 * Source: util/tq_load_conf */
int tq_conf_close(tq_conf *conf);

TQ_END_DECLS

#endif
