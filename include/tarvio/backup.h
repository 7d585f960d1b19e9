/* Saving flash areas into image packages, and writing them back.
 *
 * An area is known by its name: "bootloader", "bootsetting", "kernel", "rootfs", "writable",
 * "hibernation". An image package is an ar archive of the areas' files and of "control.tar.gz", whose
 * "tqcontrol" names each area in a line "TqDataTarget: NAME".
 *
 * The calls that take a work directory change the process's current directory while they run, and back
 * on every return; those of the two file systems mount on /mnt/root. So one backup or restore may run at
 * a time, and no other thread may depend on the current directory meanwhile. Paths reach a shell: they
 * must be free of characters that mean something to it, and a relative one is relative to the work
 * directory. They log much at level 0, and so on standard output. */
#ifndef TARVIO_BACKUP_H
#define TARVIO_BACKUP_H

#include "tarvio/base.h"
#include "tarvio/list.h"

TQ_BEGIN_DECLS

/* Saves flash areas into files of a work directory and, if asked, packs them.
 *
 * areas    names of areas; another name means the boot loader.
 * workdir  directory for the files; they stay there, also when they are packed.
 * dest     path of the image package, whose last component names the package in its control file; a file
 *          that is there is added to. Null for none.
 * archive  not 0: pack; dest must be given then.
 *
 * Stops at the first area that fails. A failed dump of a raw area does not show (see tq_nanddump), nor
 * does one of the hibernation area when it is packed. After a failure the files written so far stay, and
 * dest keeps what it has. A file system whose image could not be built stays mounted on /mnt/root.
 *
 * Returns 0; EINVAL (22) for a null areas or workdir, and for archive without dest; ENAMETOOLONG (36) for
 * a dest that leaves no room in a command line of 255 characters, with a warning in the log, and nothing
 * ran then; the errno value of a work directory that cannot be entered; -1 for a file system that cannot
 * be mounted or a dump that cannot be cut to its length; ENOMEM (12); the code of the tool that failed.
 * Source: util/tq_tbx_util */
int tq_tbx_backup_areas(tq_list_t *areas, const char *workdir, const char *dest, int archive);

/* Writes the areas of an image package back to the flash, in the order of its "TqDataTarget:" lines.
 *
 * package  path of the package; empty when its files and "./control.tar.gz" lie in workdir already.
 * workdir  directory to unpack into; the areas' files stay there.
 *
 * The area of a line is the first one in the order above whose name occurs in the line; a line without
 * any means the boot loader. Each area's device is erased as a whole, then written. Nothing is checked
 * before: not the size of a file, nor that it is in the package.
 *
 * Returns 0, also when areas failed, which only the log tells; EINVAL (22) for a package that is not an
 * image, and for a null argument; ENAMETOOLONG (36) for a package path that leaves no room in a command
 * line of 255 characters, with a warning in the log, and nothing ran then; the errno value of a work
 * directory that cannot be entered; what tq_tbx_get_package_type returns; ENOMEM (12).
 * Source: util/tq_tbx_util */
int tq_tbx_restore(const char *package, const char *workdir);

/* Writes one area: unpacks its file from the package into the current directory, and writes it to the
 * device; for the hibernation area, its information block first.
 *
 * package     path of the package; empty when the file is there already. A file that cannot be unpacked
 *             is written all the same when one of its name is there.
 * image_file  name of the file, in the package and in the current directory.
 * length      not used: the whole device is erased.
 * image_type  TQ_IMAGE_... of nand.h.
 *
 * Returns 0 or the code of the step that failed; a failure with the information block counts only when
 * it cannot be unpacked. EINVAL (22) for a null argument. (The name is spelled so.)
 * Source: util/tq_tbx_util */
int tq_tbx_resotore_image(const char *package, const char *image_file, const char *device,
                          int length, int image_type);

/* Erases a range of a device and writes a file there.
 *
 * start   offset in bytes; with 0 the whole device is erased, whatever the length.
 * length  bytes to erase from start.
 *
 * Returns 0 or the code of the step that failed; a device whose write failed is left erased. EINVAL (22)
 * for a null argument.
 * Source: util/tq_tbx_util */
int tq_restore_flash_image(const char *image_file, const char *device, int start, int length);

/* Builds a JFFS2 image of the file system on a block device, which is mounted on /mnt/root meanwhile.
 *
 * Returns 0; -1 when the mount failed; the code of tq_mkfs_jffs2, with the file system left mounted;
 * EINVAL (22) for a null argument.
 * Source: util/tq_tbx_util */
int tq_backup_jffs2(const char *device, const char *image_file);

/* Dumps a part of a device into a file: tq_nanddump with a message in the log when it fails.
 * Source: util/tq_tbx_util */
int tq_backup_flash_image(const char *device, const char *image_file, unsigned start,
                          unsigned length);

/* Writes the control files of an image package, "control" and "tqcontrol" without a target, into the
 * current directory.
 *
 * version  may be empty, or null for the same.
 *
 * Returns 0; the errno value of a file that could not be created; EINVAL (22) for a null name.
 * Source: util/tq_tbx_util */
int tq_create_image_controls(const char *package_name, const char *version);

/* Copies a source into an image file with dd and packs that as "data.tar.gz" in the current directory.
 *
 * block_size  bytes per block.
 * length      bytes to copy. When one of the two is 0, or the length is not a multiple of the block size,
 *             the whole source is copied.
 *
 * Returns 0; EINVAL (22) for a null argument; what tq_dd and tq_archive_tgz return.
 * Source: util/tq_tbx_util */
int tq_create_image_data_tgz(const char *source, const char *image_file, int block_size,
                             int length);

/* The calls for clients: tq_tbx_backup_areas, which also logs its arguments, and tq_tbx_restore.
 * Source: lib/tq_lib_backup */
int tq_lib_backup_areas(tq_list_t *areas, const char *workdir, const char *dest, int archive);
int tq_lib_backup_restore(const char *package, const char *workdir);

/* Reserved; they do nothing and return 0.
 * Source: lib/tq_lib_backup */
int tq_lib_backup_all(void);
int tq_lib_backup_rootfs(void);
int tq_lib_backup_kernel(void);

TQ_END_DECLS

#endif
