/* The package manager: the record of an installed package, the binding that does the work, and the
 * calls that go through it. */
#ifndef TARVIO_PACKAGE_H
#define TARVIO_PACKAGE_H

#include <stdint.h>

#include "tarvio/base.h"
#include "tarvio/list.h"

/* Category of a listed package. */
enum {
  TQ_CATEGORY_IMAGE = 0,
  TQ_CATEGORY_APPLICATION = 1,
  TQ_CATEGORY_OTHER = 2,
  TQ_CATEGORY_ANY = 100 /* in a filter only */
};

/* Subcategory of a listed package. */
enum {
  TQ_SUBCATEGORY_NATIVE = 0,
  TQ_SUBCATEGORY_JAVA = 1,
  TQ_SUBCATEGORY_BROWSER = 2,
  TQ_SUBCATEGORY_JSP = 3,
  TQ_SUBCATEGORY_OTHER = 4,
  TQ_SUBCATEGORY_ANY = 151 /* in a filter only */
};

/* An installed package. Records come as a chain, of two kinds with a release call each: what tq_list
 * created is released with tq_delete_tq_package_info_recurse, what the copy and filter calls created
 * with tq_free_package_info. Do not read start_app and stop_app in a copy. */
typedef struct tq_package_info {
  char *name;                   /* "Package" of its control file */
  char *version;                /* "Version" */
  int32_t type;                 /* category */
  int32_t subtype;              /* subcategory */
  char *maintainer;             /* "Maintainer" */
  char *start_app;              /* path of the file that starts the application, or empty */
  char *stop_app;               /* path of the file that stops it, or empty */
  struct tq_package_info *next; /* null at the end */
} tq_package_info;

/* The operations of a package binding, in their fixed order. */
typedef struct tq_package_binding {
  int (*setup)(void); /* nothing calls it */
  int (*list)(uint32_t type, uint32_t subtype, const char *name,
              tq_package_info **out);               /* what tq_list does */
  int (*install)(const char *path, int force);      /* what tq_install does */
  int (*files)(const char *name, tq_list_t *files); /* what tq_files does */
  int (*remove)(const char *name, int force);       /* what tq_remove does */
  int (*check_file_sign)(void);                     /* nothing calls it */
  int (*check_file_size)(const char *path);         /* what tq_check_file_size does */
  int (*check_dependency)(void);                    /* nothing calls it */
  int (*file_corruption)(void);                     /* nothing calls it */
} tq_package_binding;

TQ_BEGIN_DECLS

/* The binding record that tq_get_tbx_package_binding created last. */
extern tq_package_binding *tq_tbx_package_binding;

/* Creates a new record of the .tbx binding, stores it in tq_tbx_package_binding and returns it; null if
 * memory runs out. Every call creates a new one, and none is ever freed.
 * Source: package/tq_tbx_package_binding */
tq_package_binding *tq_get_tbx_package_binding(void);

/* Creates the binding through which the calls below work, once; further calls do nothing. A host may
 * replace operations in the record (tq_tbx_package_binding points to it). Returns 0, even if memory runs
 * out; the next call then tries again.
 * Source: package/tq_tbx_package_binding */
int tq_setup_package_manager(void);

/* Stores a value that nothing reads: the information directory is fixed.
 * Source: package/tq_tbx_package_binding */
void tq_tbx_set_opkg_dir(const char *dir);

/* Slots of the binding for checks that another binding may implement; these do nothing and return 0.
 * Source: package/tq_tbx_package_binding */
int tq_setup_tbx_package_binding(void);
int tq_tbx_check_file_sign(void);
int tq_tbx_check_dependency(void);
int tq_tbx_file_corruption(void);

/* Lists installed packages, those with a ".tqcontrol" file in opkg's information directory
 * (/usr/lib/opkg/info, below /mnt/root when the device runs offline).
 *
 * type     category to keep, or 100 for any.
 * subtype  subcategory to keep, or 151 for any.
 * name     whole package name to keep, or null for any.
 * out      receives the chain, in descending order of the control files' names, or null if nothing
 *          matched; release it with tq_delete_tq_package_info_recurse. Unchanged on failure, unless
 *          only the boot test failed.
 *
 * Values are one word each: the control files are read with tq_conf_open. A package without "Package"
 * is omitted; a missing "Version" or "Maintainer" is the empty string.
 *
 * Returns 0; the errno value of the boot test (see tq_is_boot_online; the installed root is listed
 * all the same) or of a failed directory scan; -1 if memory runs out for a record, ENOMEM
 * (12) for a path; EINVAL (22) for a null out.
 * Source: package/tq_tbx_package_binding */
int tq_tbx_list(uint32_t type, uint32_t subtype, const char *name, tq_package_info **out);

/* Installs a package file through opkg.
 *
 * path   the package file. Its name must contain ".tbx": opkg gets a copy beside it, in whose path every
 *        ".tbx" is replaced by ".ipk". The copy is removed in every case.
 * force  not 0: with "--force-depends --force-maintainer --force-reinstall --force-overwrite
 *        --force-downgrade" instead of the force options from the environment.
 *
 * The environment variables OPKG_OPTIONS and OPKG_FORCE_OPTIONS go into opkg's command line as they are.
 *
 * Returns 0; -1 for a null path, and if the copy could not be written; the errno value of a file that
 * cannot be read or of a copy that cannot be created; EINVAL (22), with a warning in the log, for a path
 * without ".tbx", with a character that is special to the shell, or that begins with "-", "~" or "#";
 * ENOMEM (12); what tq_opkg_run_command_with_options returns. opkg's exit status is ignored, so 0 does
 * not prove that the package is installed: check with tq_list.
 * Source: package/tq_tbx_package_binding */
int tq_tbx_install(const char *path, int force);

/* Lists the files of an installed package, in opkg's order.
 *
 * name   whole package name, restricted like a path of tq_tbx_install.
 * files  list to append to: one string per file, without its line end, to be freed with free().
 *        Untouched when the call fails.
 *
 * opkg's first line, a heading, is dropped. Options from the environment and the offline root do not
 * apply.
 *
 * Returns 0; -1 for a null name; EINVAL (22) for a null list or a name that is refused; ENAMETOOLONG
 * (36) for a name of more than 4,084 characters, and nothing is run; ENOMEM (12); what
 * tq_opkg_run_command returns.
 * Source: package/tq_tbx_package_binding */
int tq_tbx_files(const char *name, tq_list_t *files);

/* Removes an installed package through opkg.
 *
 * name   whole package name, restricted like a path of tq_tbx_install.
 * force  not 0: with "--force-depends" instead of the force options from the environment.
 *
 * Returns 0; -1 for a null name; EINVAL (22) for a name that is refused; ENOMEM (12); what
 * tq_opkg_run_command_with_options returns.
 * Source: package/tq_tbx_package_binding */
int tq_tbx_remove(const char *name, int force);

/* Compares the unpacked size of a package file with the free space of the first file system that df
 * lists.
 *
 * Unpacks the file's members into the current directory, overwriting files of the same names, and
 * removes "control.tar.gz", "data.tar.gz" and "debian-binary" there in every case: concurrent calls in
 * one directory interfere with each other. All sizes are 32-bit numbers: 2 to 4 GiB, free or needed, do
 * not fit, and more wraps around, so that 5 GiB count as 1 GiB.
 *
 * Returns 0 if the package fits; -1 if it does not, if it cannot be measured, and for a null path; what
 * tq_run_command returns if "ar" fails, in a process that ignores SIGCHLD in every case.
 * Source: package/tq_tbx_package_binding */
int tq_tbx_check_file_size(const char *path);

/* The calls for general use: each forwards to its operation of the active binding and returns that
 * operation's result unchanged. Before tq_setup_package_manager they return EINVAL (22) and log at
 * level 2.
 * Source: package/tq_tbx_package_binding */
int tq_list(uint32_t type, uint32_t subtype, const char *name, tq_package_info **out);
int tq_install(const char *path, int force);
int tq_remove(const char *name, int force);
int tq_files(const char *name, tq_list_t *files);
int tq_check_file_size(const char *path);

/* Copies a chain, or only its first record when `all` is 0, in order.
 *
 * out  receives the new chain, to be released with tq_free_package_info; null for a null src and if
 *      the call fails.
 *
 * Returns 0, ENOMEM (12), EINVAL (22) for a null out.
 * Source: package/tq_package_util */
int tq_copy_package_info(tq_package_info **out, const tq_package_info *src, int all);

/* Copies the records of a chain that have a category (100 for any) and a subcategory (151 for any).
 *
 * out  as in tq_copy_package_info.
 *
 * Returns 0 also when memory runs out, with a null chain; EINVAL (22) for a null out.
 * Source: package/tq_package_util */
int tq_type_filter_package(uint32_t type, uint32_t subtype, const tq_package_info *src,
                           tq_package_info **out);

/* Copies the records of a chain whose name contains a text. (tq_list compares whole names.)
 *
 * out  as in tq_copy_package_info.
 *
 * Returns 0, ENOMEM (12), EINVAL (22) for a null needle or out.
 * Source: package/tq_package_util */
int tq_name_filter_package(const char *needle, const tq_package_info *src, tq_package_info **out);

/* Releases a chain that the copy and filter calls created: name and maintainer of every record, the
 * version of the first record only, and the records. The versions of further records are not freed: to
 * release them, keep the pointers and free them after the call. Returns 0.
 * Source: package/tq_package_util */
int tq_free_package_info(tq_package_info *list);

/* Releases a chain that tq_list created, with all its strings, and sets the head to null. Returns 0.
 * Source: package/tq_tbx_package_binding */
int tq_delete_tq_package_info_recurse(tq_package_info **head);

TQ_END_DECLS

#endif
