/* Archives, through the tools tar, ar and dd, and the lines that a command prints.
 *
 * The tools run under the shell: paths and names must not contain characters that are special to it. A
 * relative path is relative to the current directory, and members are unpacked there. A tool is judged
 * by what it prints, not by its exit status: a missing member, for example, gives 0. */
#ifndef TARVIO_ARCHIVE_H
#define TARVIO_ARCHIVE_H

#include <stdint.h>

#include "tarvio/base.h"

/* The lines that a command printed, each without its line end; null where memory ran out for a copy. */
typedef struct tq_pkg_data {
  int32_t count; /* number of lines */
  char **lines;  /* null while count is 0 */
} tq_pkg_data;

TQ_BEGIN_DECLS

/* The calls that run tar, ar or dd return 0; the errno value whose message the tool printed; the errno
 * value of a shell that could not be started; ENAMETOOLONG (36) for a command line of more than 255
 * characters, with a warning in the log and without running anything; ENOMEM (12); EINVAL (22) for a
 * null argument where null is not mentioned. Each waits for its tool, and may run on any thread. */

/* Copies a file or device with dd.
 *
 * block_size   bytes per block; 0 omits the option, so that dd uses its default of 512.
 * block_count  blocks to copy; 0 omits the option, so that everything is copied.
 *
 * Source: util/tq_archive */
int tq_dd(const char *in_file, const char *out_file, int block_size, int block_count);

/* Unpacks a gzip-compressed tar archive into the current directory.
 *
 * archive  null is not refused: the shell then prints an error on standard error, and the result is 0.
 * member   the one member to unpack, spelled as in the archive, or null for all.
 *
 * Source: util/tq_archive */
int tq_extract_from_tgz(const char *archive, const char *member);

/* Unpacks an ar archive into the current directory.
 *
 * member  the one member to unpack, or null for all.
 *
 * Source: util/tq_archive */
int tq_extract_from_ar(const char *archive, const char *member);

/* Creates a gzip-compressed tar archive, replacing an existing one.
 *
 * file_count  number of files; with 0 or less, tar is run with the archive's name only.
 * files       their names, which become the members' names.
 *
 * Source: util/tq_archive */
int tq_archive_tgz(const char *archive, int file_count, const char *const *files);

/* Adds files to an ar archive, which is created if it does not exist; a member of the same name is
 * replaced. The arguments are those of tq_archive_tgz.
 * Source: util/tq_archive */
int tq_archive_ar(const char *archive, int file_count, const char *const *files);

/* Runs a command line under the shell and keeps what it prints.
 *
 * The first line is a heading, which is not kept: the output is accepted if that line has at least 16
 * characters and does not contain "Collected errors". Otherwise the lines after it are printed on
 * standard output, without line ends. Lines may have any length, and end with a line feed, a carriage
 * return or both.
 *
 * Returns a new record for tq_pkg_data_close; null if the output was not accepted, the shell could not
 * be started or memory ran out, and for a null command. Waits for the command.
 * Source: util/tq_pkg_data */
tq_pkg_data *tq_pkg_data_open(const char *command);

/* Returns the number of lines; 0 for a null handle.
 * Source: util/tq_pkg_data */
int32_t tq_pkg_data_count(const tq_pkg_data *handle);

/* Returns a line, which belongs to the record.
 *
 * index  0 to tq_pkg_data_count - 1; not checked. A null handle gives null.
 *
 * Source: util/tq_pkg_data */
const char *tq_pkg_data_find(const tq_pkg_data *handle, uint32_t index);

/* Appends a copy of a line; null is appended if memory runs out for the copy.
 *
 * Returns 0; ENOMEM (12) if the array cannot grow, with the record unchanged; EINVAL (22) for a null
 * handle.
 * Source: util/tq_pkg_data */
int tq_pkg_data_write(tq_pkg_data *handle, const char *line);

/* Frees the record with its lines. Returns 0, also for null.
 * Source: util/tq_pkg_data */
int tq_pkg_data_close(tq_pkg_data *handle);

TQ_END_DECLS

#endif
