/* The application manager: starts and stops the installed applications and keeps their statuses. An
 * application is an installed package of category "Application". */
#ifndef TARVIO_APP_H
#define TARVIO_APP_H

#include <stdint.h>

#include "tarvio/base.h"
#include "tarvio/list.h"
#include "tarvio/package.h"

struct tq_app_info;

/* The operations of an application binding, in their fixed order. */
typedef struct tq_app_binding {
  int (*setup)(void);                      /* called once, by the set-up of the manager */
  int (*is_mine)(struct tq_app_info *app); /* not 0 when the binding takes the application */
  int (*start)(struct tq_app_info *app);   /* 0 or an error code */
  int (*stop)(struct tq_app_info *app);    /* 0 or an error code */
} tq_app_binding;

/* An installed application. */
typedef struct tq_app_info {
  tq_app_binding *binding;  /* unset until tq_check_app_biniding found one */
  tq_package_info *package; /* borrowed */
  int32_t stopped;          /* 1 stopped, 0 started */
  int32_t *pid;             /* heap cell with the child's process id; null while not started */
} tq_app_info;

/* What a refresh changed: numbers of applications. */
typedef struct tq_refresh_result {
  int32_t added;   /* new ones */
  int32_t removed; /* whose package went */
  int32_t changed; /* another version, maintainer, subcategory, start file or stop file */
} tq_refresh_result;

TQ_BEGIN_DECLS

/* The binding record that tq_get_linux_app_binding created last. */
extern tq_app_binding *linux_app_binding;

/* Sets the manager up: lists the installed applications and binds each. The host calls it once, after
 * the status manager and the package manager; applications installed later are unknown until
 * tq_refresh_applications or a restart of the process. Ignores SIGCHLD for the whole process.
 *
 * Returns 1 (not 0) on success, also if there is no application or the listing failed; 0 if no
 * binding takes an application, and if memory runs out for the manager itself. Applications for which
 * memory runs out are omitted; tq_known_applications shows which are not.
 * Source: app/tq_app_manager */
int tq_setup_app_manager(void);

/* Creates the record of an application: stopped, without a process, binding unset.
 *
 * out  receives the record, to be freed with free(), or null.
 *
 * Returns 0, ENOMEM (12), EINVAL (22) for a null out.
 * Source: app/tq_app_manager */
int tq_create_app_info(tq_package_info *package, tq_app_info **out);

/* Appends a record for every installed application to a list. The records become the caller's. Their
 * packages are borrowed from the listing and stay valid: none is freed, even when the call fails.
 *
 * Returns 0, also when the listing failed; else the error of tq_create_app_info or tq_list_add.
 * Source: app/tq_app_manager */
int tq_get_installed_application(tq_list_t *apps);

/* Makes the manager know what is installed now, in the order that a set-up would give. Applications that
 * stay keep their records, with binding, pid and state: one that was upgraded keeps running, and its
 * record gets the new package. A new one is stopped, and bound as by the set-up. One whose package went
 * is stopped first, as by tq_stop_app with its old package (which may name a stop file that is gone),
 * and its record and status are removed. Since a listing omits packages that it cannot read, tq_list is
 * asked once more for the name of each application that it lacks, and one that it has then stays.
 *
 * result  receives what changed, also when the call fails; may be null.
 *
 * Invalidates what tq_known_applications led to: the nodes, the records of removed applications, and the
 * packages of removed and changed ones. A package is freed only if the active package binding has had
 * the library's own list operation since the set-up; those of another operation are borrowed, and stay.
 *
 * Returns 0; EINVAL (22) before the set-up; what tq_list returns, or ENOMEM (12), and nothing is changed;
 * the code of the last application that could not be stopped or looked up: such ones stay known, at the
 * end of the list, until the next refresh. Not serialised, as tq_start_app.
 * Source: app/tq_app_manager */
int tq_refresh_applications(tq_refresh_result *result);

/* Returns the applications that the manager knows, as a list of tq_app_info in its order; null before the
 * set-up and when memory ran out for it. The list and its records stay the manager's, and a refresh
 * changes them. For a host that checks its set-up, which does not report what it left out. Not
 * serialised: call it before requests are answered, or as tq_start_app.
 * Source: app/tq_app_manager */
const tq_list_t *tq_known_applications(void);

/* Asks the bindings of a list in order whether they take the application, and stores the first that
 * does in its record. Returns that binding's answer, or 0 if none takes it. (The misspelling is part of
 * the name.)
 * Source: app/tq_app_manager */
int tq_check_app_biniding(tq_app_info *app, tq_list_t *bindings);

/* Does the same for every application of a list. Returns 1 if each found a binding, else 0.
 * Source: app/tq_app_manager */
int tq_check_all_app_binding(tq_list_t *apps, tq_list_t *bindings);

/* Starts an application and sets its status to normal, "started app", or to error, "start app failed.".
 *
 * name  text that the package name contains: the first application in list order wins.
 *
 * With the Linux binding, 0 does not mean that the program runs: a failed fork and a program that
 * cannot be executed count as started.
 *
 * Returns 0, also if it is already started; EINVAL (22) for an unknown or null name, and for an
 * application without a binding; the start operation's error.
 * Not serialised: the com server's thread calls it for the clients, so call it from there or through a
 * request.
 * Source: app/tq_app_manager */
int tq_start_app(const char *name);

/* Stops an application and removes its status. A failed stop sets the status to error, "Stop App
 * Failed".
 *
 * name  as in tq_start_app.
 *
 * Takes about a second for a started application.
 *
 * Returns 0, also if it is already stopped; EINVAL (22) for an unknown or null name; the stop
 * operation's error. Not serialised, as above.
 * Source: app/tq_app_manager */
int tq_stop_app(const char *name);

/* Start, or stop, the application with exactly this package name; in all else the same as tq_start_app
 * and tq_stop_app.
 * Source: app/tq_app_manager */
int tq_start_app_exact(const char *name);
int tq_stop_app_exact(const char *name);

/* Start, or stop, every application by its package name, retrying each until it succeeds: an
 * application that keeps failing blocks the call forever, unless TQ_REPAIR_RETRIES is set (see
 * repairs.h). One whose name is contained in the name of an earlier application is not reached; the
 * earlier one is handled twice.
 *
 * Returns 0 if no attempt failed, else the code of the last one that did. Not serialised, as above.
 * Source: app/tq_app_manager */
int tq_start_all_app(void);
int tq_stop_all_app(void);

/* Creates a new record of the Linux binding, stores it in linux_app_binding and returns it; null if
 * memory runs out.
 * Source: app/tq_app_manager */
tq_app_binding *tq_get_linux_app_binding(void);

/* The operations of the Linux binding. Set-up ignores SIGCHLD; every application is taken; a start runs
 * the package's start file as a child process; a stop runs its stop file (see tq_terminate_process).
 *
 * Return 0, 1 for tq_is_linux_app, or the code of tq_create_process and tq_terminate_process; a start
 * without memory for the process id returns ENOMEM (12).
 * Source: app/tq_app_manager */
int tq_setup_linux_app_binding(void);
int tq_is_linux_app(tq_app_info *app);
int tq_start_linux_app(tq_app_info *app);
int tq_stop_linux_app(tq_app_info *app);

/* Ignores SIGCHLD, so that nobody has to wait for ended children. Returns 0.
 * Source: app/tq_app_manager */
int tq_ignore_wait_child_process_signal(void);

TQ_END_DECLS

#endif
