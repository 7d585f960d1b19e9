/* Running opkg and judging what it prints. */
#ifndef TARVIO_OPKG_H
#define TARVIO_OPKG_H

#include "tarvio/base.h"
#include "tarvio/list.h"

TQ_BEGIN_DECLS

/* Checks whether the device runs from its installed root ("root=/dev/mtdblock4" in the first 256 bytes
 * of /proc/cmdline) or has it mounted on /mnt/root.
 *
 * online  receives 1 or 0; unchanged on failure, so set it before the call.
 *
 * Returns 0, EINVAL (22) for a null argument, or the errno value of the failed open or read (0 if the
 * file is empty). A failed read leaves its descriptor open, unless TQ_REPAIR_BOOT_TEST is set (see
 * repairs.h).
 * Source: util/tq_opkg_util */
int tq_is_boot_online(int *online);

/* Runs a whole opkg command line under the shell and turns its output into a code.
 *
 * command  the command line.
 * output   receives opkg's lines without their line ends, as strings to free; may be null. Lines that
 *          were in the list before are neither judged nor changed.
 *
 * Returns 0; the code of the last line of the output that contains a text of opkgmes (within that line
 * the one of the highest row); EINVAL (22) for a null command; the errno value of a shell that could not
 * be started; ENOMEM (12), with the lines so far in the list, not judged and with their line ends. opkg's
 * exit status is ignored: a failure without a known message gives 0.
 * Source: util/tq_opkg_util */
int tq_opkg_run_command(const char *command, tq_list_t *output);

/* Composes an opkg command line and runs it: "opkg", the options, the force options, the word, the
 * target, and on the offline root "--offline-root=/mnt/root".
 *
 * command_word            such as "install".
 * options, force_options  strings of options, or null.
 * target                  package name or file.
 *
 * Returns what tq_opkg_run_command returns; -1 for a null word or target; ENOMEM (12); ENAMETOOLONG (36)
 * if the offline command line would exceed 255 characters, and nothing is run.
 * Source: util/tq_opkg_util */
int tq_opkg_run_command_with_options(const char *command_word, const char *options,
                                     const char *force_options, const char *target);

TQ_END_DECLS

#endif
