/* Saving flash areas into image packages, and writing them back.
 *
 * An area is known by its name: "bootloader", "bootsetting", "kernel", "rootfs", "writable",
 * "hibernation". An image package is an ar archive of the areas' files and of "control.tar.gz", whose
 * "tqcontrol" names each area in a line "TqDataTarget: NAME".
 *
 * The calls that take a work directory change the process's current directory while they run, and back
 * on every return; those of the two file systems mount on /mnt/root. So one backup or restore may run at
 * a time, and no other thread may depend on the current directory meanwhile. Paths reach a shell: a
 * package to restore or to pack is refused with EINVAL (22) and a warning in the log when its path holds
 * a character that is special to the shell or begins with "-", "~" or "#"; other paths must be free of
 * these. A relative one is relative to the work directory. The calls log much at level 0, and so on
 * standard output. Their result hides failures: whoever must know what became of each step sets an
 * observer. */
#ifndef TARVIO_BACKUP_H
#define TARVIO_BACKUP_H

#include <stdint.h>

#include "tarvio/base.h"
#include "tarvio/list.h"

/* The steps of a backup or a restore, in tq_flash_event. */
enum {
  TQ_FLASH_VERSION = 1, /* reads the version of the system */
  TQ_FLASH_CONTROLS =
      2, /* writes or archives the control files of a package; of a restore: reads them */
  TQ_FLASH_DUMP = 3,    /* reads a part of a device into a file */
  TQ_FLASH_CUT = 4,     /* cuts that file to its length, or fills it up with zeros */
  TQ_FLASH_REBUILD = 5, /* mounts a file system and builds an image of it */
  TQ_FLASH_PACK = 6,    /* adds a file to the package */
  TQ_FLASH_UNPACK = 7,  /* extracts a file from the package */
  TQ_FLASH_ERASE = 8,   /* erases a device or a range of it */
  TQ_FLASH_WRITE = 9    /* writes a file to a device */
};

/* What is reported of a step. */
enum {
  TQ_FLASH_BEGIN = 1, /* it begins: its tool has not been started yet */
  TQ_FLASH_LINE = 2,  /* its tool, which has ended, had printed a line */
  TQ_FLASH_END = 3    /* it has ended */
};

/* A report of a step. The strings are valid until the observer returns. */
typedef struct tq_flash_event {
  int32_t kind;   /* TQ_FLASH_BEGIN, TQ_FLASH_LINE or TQ_FLASH_END */
  int32_t step;   /* TQ_FLASH_VERSION ... TQ_FLASH_WRITE */
  int32_t code;   /* at the end: 0 or why the step failed, which the call's result may hide; else 0.
                   Of a file system that cannot be mounted it is -1, and errno says why. */
  uint32_t start; /* offset on the device in bytes, where the step has one */
  uint64_t bytes; /* see tq_set_flash_observer */
  const char *area;   /* name of the area; null outside the work on one */
  const char *file;   /* path, relative to the work directory, which is the current one; or null */
  const char *device; /* path, or null */
  const char *line;   /* of TQ_FLASH_LINE, without its line end; else null */
} tq_flash_event;

/* Takes reports.
 *
 * event  valid until the observer returns.
 * user   the pointer of tq_flash_observer.
 *
 * Returns 0 to go on; any other number stops the work, and becomes the result of the call. */
typedef int (*tq_flash_observe)(const tq_flash_event *event, void *user);

/* An observer of the work on the flash, see tq_set_flash_observer. */
typedef struct tq_flash_observer {
  tq_flash_observe observe; /* null for none */
  void *user;               /* handed to each call of observe as it is */
} tq_flash_observer;

TQ_BEGIN_DECLS

/* Sets the observer of the flash work that the calling thread does from now on.
 *
 * observer  copied; its user pointer must stay valid while it is set. Null, or a null function, takes the
 *           thread's observer away.
 *
 * tq_lib_backup_areas and tq_lib_backup_restore report each of their steps, and so do the calls that they
 * make, when they are called alone: tq_tbx_backup_areas, tq_tbx_restore, tq_tbx_resotore_image,
 * tq_restore_flash_image, tq_backup_jffs2, tq_backup_flash_image, tq_nanddump, tq_erase_flash,
 * tq_erase_flash_all, tq_nandwrite. A step has a TQ_FLASH_BEGIN, a TQ_FLASH_LINE for each line that its
 * tools printed (in pieces of 255 bytes where it is longer), and a TQ_FLASH_END; no step comes within
 * another. What is done, logged and returned is the same with an observer and without.
 *
 * bytes of an event: of an erase the length of the range, 0 for the whole device. At the begin of a dump
 * and of a cut the length that the file is to get, 0 for one that is not cut; of a pack and a write the
 * length of the file. At the end of every step with a file its length then: that of a dump is what the
 * tool has read, before the cut. Else 0.
 *
 * code of an event: what the step's call returns (see there and nand.h); the errno value of a cut; -1 of a
 * rebuild whose file system cannot be mounted; ENOENT (2) of a version that is not found. A code other
 * than 0 does not always fail the call: a backup goes on without a version, after a failed dump and after
 * control files that could not be written, a restore after every step of an area.
 *
 * A return other than 0 stops the work: the observer is not called again in this call, no further tool is
 * started, nothing more is mounted, no file is cut, and the call returns that number. What is half done
 * stays as after a failure: files in the work directory and in the package, a file system of a rebuild on
 * /mnt/root, an area that is erased and not written. The log has the messages of a failure. The next call
 * starts without a stop.
 *
 * The observer runs on the thread of the call, between its tools, which wait for it; it must not make
 * calls that work on the flash, change the current directory or unwind (throw, longjmp). It may set or
 * take away the observer, and remove the file of a pack or a write that has ended. Each thread has its
 * own observer, and a new thread none; a process made by fork keeps that of the thread that called it.
 *
 * Source: util/tq_flash_observer */
void tq_set_flash_observer(const tq_flash_observer *observer);

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
 * package  path of the package; empty when its files and "./control.tar.gz" are already in workdir.
 * workdir  directory to unpack into; the areas' files stay there.
 *
 * The area of a line is the first one in the order above whose name occurs in the line; a line without
 * any means the boot loader. Each area's device is erased as a whole, then written. Nothing is checked
 * before: not the size of a file, nor that it is in the package.
 *
 * Returns 0, also when areas failed, which only the log and an observer learn; EINVAL (22) for a package
 * that is not an image, and for a null argument; ENAMETOOLONG (36) for a package path that leaves no room
 * in a command line of 255 characters, with a warning in the log and before anything is erased; the errno
 * value of a work directory that cannot be entered; what tq_tbx_get_package_type returns; ENOMEM (12).
 * Source: util/tq_tbx_util */
int tq_tbx_restore(const char *package, const char *workdir);

/* Writes one area: unpacks its file from the package into the current directory, and writes it to the
 * device; for the hibernation area, its information block first.
 *
 * package     path of the package; empty when the file is already there. When a file cannot be unpacked, an
 *             existing one of that name is written.
 * image_file  name of the file, in the package and in the current directory.
 * length      not used: the whole device is erased.
 * image_type  TQ_IMAGE_... of nand.h.
 *
 * Returns 0 or the code of the step that failed; a failure with the information block counts only when
 * it cannot be unpacked. EINVAL (22) for a null argument. (The name is spelled so: oddity 150.)
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
