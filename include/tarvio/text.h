/* Helpers for zero-terminated strings, and the reading of lines from a descriptor. */
#ifndef TARVIO_TEXT_H
#define TARVIO_TEXT_H

#include <stdint.h>

#include "tarvio/base.h"

TQ_BEGIN_DECLS

/* Removes one line end from a string in place: a final line feed, and a carriage return right before
 * it. A final carriage return alone stays. Returns the string; null for a null string.
 * Source: util/tq_string */
char *tq_chop(char *string);

/* Returns 1 when the string begins with the prefix and is longer than it, else 0. A string equal to the
 * prefix gives 0, and so does a null argument.
 * Source: util/tq_string */
int tq_str_startwith(const char *string, const char *prefix);

/* Returns 1 when both strings are equal, else 0; 0 when one of them is null.
 * Source: util/tq_string */
int tq_str_equals(const char *a, const char *b);

/* Moves a string with its terminator inside its buffer.
 *
 * shift  distance in bytes as a 32-bit word: a positive one towards the end of the buffer, a negative
 *        one (as two's complement) towards its start. The caller provides the room.
 *
 * Returns the string's new start, or null for a null string.
 * Source: util/tq_string */
char *tq_memmove(char *string, uint32_t shift);

/* Replaces every occurrence of a text in place. What was inserted is not searched again.
 *
 * string    its buffer must have room for the result; this is not checked.
 * old_text  an empty one leaves the string as it is.
 *
 * Returns the string. A null argument leaves it as it is.
 * Source: util/tq_string */
char *tq_replace_string(char *string, const char *old_text, const char *new_text);

/* Copies bytes into a new block.
 *
 * out     receives the block, to be freed with free(); null if memory runs out or source is null.
 * source  the bytes.
 * size    their number.
 *
 * Returns 0 in every case: check *out.
 * Source: util/tq_string */
int tq_memdup(void **out, const void *source, uint32_t size);

/* Copies a string into a new block, as tq_memdup does. The copy is returned in *out; the result is
 * always 0.
 * Source: util/tq_string */
int tq_strdup(char **out, const char *string);

/* Splits a string at the characters of a delimiter set; a run of them counts as one, so that no token
 * is empty.
 *
 * string      only read: the tokens point into a private copy.
 * delimiters  the set.
 *
 * Returns a new array of token pointers that ends with a null entry (a lone null entry when there is no
 * token), or null for a null argument and if memory runs out. Free the copy through the array's first
 * entry, if that is not null, and then the array, each with free().
 * Source: util/tq_string */
char **tq_strtok(const char *string, const char *delimiters);

/* Reads one line from a descriptor and leaves every byte after it unread.
 *
 * buffer  receives at most size - 1 bytes; clear it before each call, because no zero is stored after
 *         a last line that lacks its line end (the buffer's last byte is always set to 0).
 * size    of the buffer; with 0 or 1, or a null buffer, nothing is read and the result is null.
 * fd      a file, a pipe, or a socket.
 *
 * A line ends with a line feed or a carriage return, which is kept. A longer line comes in pieces.
 * Returns the buffer, or null if the end of data or an error came before any byte (errno shows which,
 * if the caller set it to 0). On a socket a line costs two system calls, elsewhere one per byte.
 * Source: util/tq_string */
char *tq_fdgets(char *buffer, uint32_t size, int fd);

TQ_END_DECLS

#endif
