/* Helpers for package files (.tbx): running a program, copying a file, detecting the kind of package. */
#ifndef TARVIO_TBX_H
#define TARVIO_TBX_H

#include <stdint.h>

#include "tarvio/base.h"
#include "tarvio/list.h"

/* Kind of a package file. Not the categories of package.h, which listed packages have. */
enum { TQ_TBX_TYPE_IMAGE = 0, TQ_TBX_TYPE_APPLICATION = 2 };

/* What tq_tbx_conv_package_subtype returns for an unknown word. */
enum { TQ_TBX_SUBTYPE_NONE = 151 };

TQ_BEGIN_DECLS

/* Runs a program, without a shell, and waits for it.
 *
 * argc  not used.
 * argv  the arguments, ended by a null entry; the first one is the program, searched on PATH. It shares
 *       the caller's standard streams and environment.
 *
 * Returns 0 if the program exited with 0, else a number of mixed kinds, to be compared with 0 only: its
 * exit status; the signal that ended it; 1 when it could not be executed; the errno value of a failed
 * fork, or of a failed wait: ECHILD (10) in a process that ignores SIGCHLD, whatever the program did.
 * EINVAL (22) for a null argv or program. An interrupted wait is not repeated (EINTR, 4).
 * Source: util/tq_tbx_util */
int tq_run_command(int argc, char *const *argv);

/* Copies a file. The new file has the default mode, and its content is not synced to the disk. A read
 * error counts as the end of the file, and an error that appears only when the copy is closed is not
 * reported.
 *
 * dst  created, or overwritten; incomplete if the copy failed.
 *
 * Returns 0; the errno value of a file that could not be opened; -1 for a failed write; EINVAL (22)
 * for a null argument.
 * Source: util/tq_tbx_util */
int tq_copy_file(const char *src, const char *dst);

/* Returns the kind that a value of "TqPackageCategory" stands for: 2 for "Application", 0 for everything
 * else, null too.
 * Source: util/tq_tbx_util */
int32_t tq_tbx_conv_package_type(const char *category);

/* Returns the code that a value of "TqPackageSubCategory" stands for: "Application_Native" 0, "_Java" 1,
 * "_Browser" 2, "_Jsp" 3, "_Other" 4, "Image_All" 5, "_Rootfs" 6, "_Kernel" 7, "_Hibernation" 8, "_Data"
 * 10, "_Other" 13; 151 for everything else, null too.
 * Source: util/tq_tbx_util */
uint32_t tq_tbx_conv_package_subtype(const char *subcategory);

/* Reads from a package file what kind of package it is and where the data of an image goes.
 *
 * path     the package file; empty to use an existing "./control.tar.gz".
 * type     receives 2 for an application, else 0. Unchanged if the package's "tqcontrol" holds no pair of
 *          key and value, so set it before the call.
 * targets  list to append to: each line of "tqcontrol" that begins with "TqDataTarget:" and does not end
 *          there, whole, with its line end, as a string to free. Lines are read in pieces of 255 bytes.
 *
 * Unpacks "./control.tar.gz" and "./tqcontrol" into the current directory, overwriting files of these
 * names, and removes them (with an empty path, only the second) when it succeeds; after a failure they
 * may stay. Concurrent calls in one directory interfere with each other.
 *
 * Returns 0; ENOENT (2) if the package has no "tqcontrol" and none existed before, or one that is not a
 * regular file; what tq_extract_from_ar and tq_extract_from_tgz return; ENOMEM (12), with the targets so
 * far; EINVAL (22) for a null argument, and, with a warning in the log, for a path with a character that
 * is special to the shell or that begins with "-", "~" or "#".
 * Source: util/tq_tbx_util */
int tq_tbx_get_package_type(const char *path, int32_t *type, tq_list_t *targets);

TQ_END_DECLS

#endif
