/* A host process that is the resident manager, in the place of tarviod: sets the library up, starts
 * all applications, answers requests, and stops the applications when SIGTERM or SIGINT ends it. */
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <tarvio/tarvio.h>

static sem_t ended;

/* A handler and not a blocked signal, which the applications would inherit. */
static void end(int signal_number) {
  (void)signal_number;
  sem_post(&ended);
}

/* What the reply to refresh_apps has after its code. Requests are served one after the other. */
static tq_refresh_result refreshed;
static char counts[128];

static int refresh(const char* name) {
  (void)name;
  return tq_refresh_applications(&refreshed);
}

static const char* refresh_counts(void) {
  snprintf(counts, sizeof counts, "\nadded %d\nremoved %d\nchanged %d\n", (int)refreshed.added,
           (int)refreshed.removed, (int)refreshed.changed);
  return counts;
}

/* Without these words, tarvio and tarvio.hpp cannot ask for an application by its exact name. */
static const tq_com_word words[] = {{"start_exact", tq_start_app_exact, NULL},
                                    {"stop_exact", tq_stop_app_exact, NULL},
                                    {"refresh_apps", refresh, refresh_counts},
                                    {NULL, NULL, NULL}};

int main(void) {
  sem_init(&ended, 0, 0);
  signal(SIGTERM, end);
  signal(SIGINT, end);

  tq_log_init();
  tq_set_repairs(TQ_REPAIR_ALL);
  tq_setup_status_manager();
  tq_setup_package_manager();
  if (tq_setup_app_manager() == 0) { /* 1 is success here */
    fprintf(stderr, "host: cannot set up the applications\n");
    return EXIT_FAILURE;
  }
  printf("%d applications are installed\n", (int)tq_list_size(tq_known_applications()));
  tq_set_com_words(words);
  if (tq_setup_com_manager() != 0) {
    perror("host: cannot answer on " TQ_COM_SOCKET_PATH);
    return EXIT_FAILURE;
  }

  /* Applications belong to the thread that answers requests, so that these are requests, too. */
  tq_lib_start_all_app();
  printf("started, answering on " TQ_COM_SOCKET_PATH "\n");
  fflush(stdout);
  while (sem_wait(&ended) != 0) {
  }
  tq_lib_stop_all_app();
  unlink(TQ_COM_SOCKET_PATH);
  printf("stopped\n");
  return EXIT_SUCCESS;
}
