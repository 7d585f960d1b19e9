/* Queries about files. A path exists if stat succeeds on it. */
#ifndef TARVIO_FILE_H
#define TARVIO_FILE_H

#include <stdint.h>

#include "tarvio/base.h"

TQ_BEGIN_DECLS

/* Gets the size of a file.
 *
 * size  receives the size in bytes (its low 32 bits); unchanged on failure.
 *
 * Returns 0, or -1 (not an errno value; errno holds the reason).
 * Source: util/tq_file */
int tq_get_file_length(const char *path, uint32_t *size);

/* Checks whether a path is a regular file.
 *
 * flag  receives 1 if it is, 0 if the path does not exist or is of another kind.
 *
 * Returns 0 in every case: the answer is in the flag.
 * Source: util/tq_file */
int tq_file_exist(const char *path, int32_t *flag);

/* Checks whether a path is a directory, in the same way.
 * Source: util/tq_file */
int tq_dir_exist(const char *path, int32_t *flag);

/* Removes a file. Returns 0, or the errno value of the failed unlink.
 * Source: util/tq_file */
int tq_file_delete(const char *path);

TQ_END_DECLS

#endif
