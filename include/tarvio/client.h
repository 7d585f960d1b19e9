/* What other programs of the device call. Status, start and stop calls ask the resident manager over
 * TQ_COM_SOCKET_PATH; package calls do their work in the calling process. */
#ifndef TARVIO_CLIENT_H
#define TARVIO_CLIENT_H

#include <stdint.h>

#include "tarvio/base.h"
#include "tarvio/list.h"
#include "tarvio/package.h"

TQ_BEGIN_DECLS

/* Ask the manager to start or stop an application (or all of them) and wait for its answer.
 *
 * name  text that the application's package name contains.
 *
 * Return 0 in every case, even if no manager answers: the statuses show afterwards whether it worked.
 * (tq_request_com and tq_receive_com give the result code.)
 * Source: lib/tq_lib_app */
int tq_lib_start_app(const char *name);
int tq_lib_stop_app(const char *name);
int tq_lib_start_all_app(void);
int tq_lib_stop_all_app(void);

/* Ask the manager for all statuses, or for those of applications, and append a tq_status for each.
 *
 * list  receives records with three fields set: `name` and `detail`, each including its line end,
 *       and `id`, which holds the state. type, state and next are not set. Free detail, name and
 *       record; tq_status_list_free does it for the whole list.
 *
 * Return 0, even if no manager answers or the reply is truncated (the list holds what was received);
 * a negative number if no socket could be created; EINVAL (22) for a null list.
 * Source: lib/tq_lib_status */
int tq_lib_list_all_status(tq_list_t *list);
int tq_lib_list_app_status(tq_list_t *list);

/* List, install and remove packages: set up the package manager and forward to tq_list, tq_install and
 * tq_remove of package.h.
 * Source: lib/tq_lib_package */
int tq_lib_list_pkg(uint32_t type, uint32_t subtype, const char *name, tq_package_info **out);
int tq_lib_install_pkg(const char *path, int force);
int tq_lib_remove_pkg(const char *name, int force);

/* Lists the files of an installed package.
 *
 * count  receives the number of strings, 0 on failure.
 * files  receives a new array of them, null if there is none; free each string and the array.
 *
 * Returns the result of tq_files, ENOMEM (12), or EINVAL (22) for a null argument.
 * Source: lib/tq_lib_package */
int tq_lib_files_pkg(const char *name, uint32_t *count, char ***files);

/* The same as tq_get_err_mes, for clients.
 * Source: lib/tq_lib_package */
char *tq_lib_get_err_mes(int32_t code);

TQ_END_DECLS

#endif
