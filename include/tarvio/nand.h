/* The flash memory of the device, through the tools mkfs.jffs2, flash_erase, flash_eraseall, nandwrite
 * and nanddump.
 *
 * An erase block is 128 KiB (0x20000 bytes). The tools run under the shell: names must not contain
 * characters that are special to it. A tool is judged by what it prints, not by its exit status. */
#ifndef TARVIO_NAND_H
#define TARVIO_NAND_H

#include <stdint.h>

#include "tarvio/base.h"

/* What an image holds. */
enum {
  TQ_IMAGE_ROOTFS = 6,
  TQ_IMAGE_KERNEL = 7,
  TQ_IMAGE_HIBERNATION = 8,
  TQ_IMAGE_WRITABLE = 10,
  TQ_IMAGE_BOOTLOADER = 11,
  TQ_IMAGE_BOOTSETTING = 12
};

TQ_BEGIN_DECLS

/* Unless said otherwise, these calls return 0; the errno value whose message the tool printed; the errno
 * value of a shell that could not be started; ENAMETOOLONG (36) for a command line of more than 255
 * characters, with a warning in the log and without running anything; ENOMEM (12); EINVAL (22) for a
 * null argument. Each waits for its tool, and may run on any thread. */

/* Builds a JFFS2 image (little-endian, padded to whole erase blocks) of a directory tree.
 * Source: util/tq_nand_util */
int tq_mkfs_jffs2(const char *root_dir, const char *image_file);

/* Erases a range of a device, one erase block at a time, continuing after a block that fails.
 *
 * start   offset in bytes.
 * length  in bytes; a partial erase block at the end is not erased.
 *
 * Returns 0 if at least one block was erased without an error, so 0 says nothing about the others; the
 * code of the last block if all failed; -1 for less than one erase block.
 * Source: util/tq_nand_util */
int tq_erase_flash(const char *mtd_device, int start, int length);

/* Erases a whole device.
 * Source: util/tq_nand_util */
int tq_erase_flash_all(const char *mtd_device);

/* Writes a file to a device, skipping bad blocks.
 *
 * start  offset in bytes at which to begin.
 *
 * Source: util/tq_nand_util */
int tq_nandwrite(const char *image_file, const char *mtd_device, unsigned start);

/* Reads a device from an offset to its end into a file, without bad blocks and out-of-band data.
 *
 * start   offset in bytes.
 * length  the file is then truncated, or padded with zeros, to this many bytes; 0 leaves it as it is.
 *
 * With a length, the result is only that of the truncation, 0 or -1: it does not show a dump that failed
 * or is too short.
 * Source: util/tq_nand_util */
int tq_nanddump(const char *mtd_device, const char *out_file, unsigned start, unsigned length);

/* Gets the number of bad blocks of a device.
 *
 * bad_blocks  receives the number; unchanged if the tool does not print it, so set it before the call.
 *
 * Writes a file "countbad" in the current directory, and removes it on every return: concurrent calls in
 * one directory interfere with each other. Errors that the tool prints are ignored.
 * Source: util/tq_nand_util */
int tq_nand_count_badblock(const char *mtd_device, int *bad_blocks);

/* Computes how many bytes of an image can be written to its area.
 *
 * image_type    TQ_IMAGE_..., or 9, which has the size of the hibernation area; any other has no room.
 * bad_blocks    number of bad erase blocks in the area.
 * writable_len  receives the length of the file if it fits into the good blocks, else their room, in
 *               bytes; 0 or less if there is none. Unchanged on failure.
 *
 * Runs nothing. Returns 0; the errno value of a file that cannot be found; EINVAL (22) for a null
 * argument.
 * Source: util/tq_nand_util */
int tq_nand_get_writable_len(const char *image_file, int image_type, int bad_blocks,
                             int *writable_len);

TQ_END_DECLS

#endif
