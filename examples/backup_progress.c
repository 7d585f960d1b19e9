/* Saves areas of the flash into an image package and shows each step:
 *   backup_progress IMAGE AREA... */
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <tarvio/tarvio.h>

static volatile sig_atomic_t interrupted;

static void interrupt(int signal_number) { interrupted = signal_number; }

static const char* step_name(int32_t step) {
  switch (step) {
    case TQ_FLASH_VERSION:
      return "read the system's version";
    case TQ_FLASH_CONTROLS:
      return "write control files";
    case TQ_FLASH_DUMP:
      return "dump";
    case TQ_FLASH_CUT:
      return "cut";
    case TQ_FLASH_REBUILD:
      return "rebuild";
    case TQ_FLASH_PACK:
      return "pack";
    default:
      return "other work";
  }
}

/* The result of the call hides some failures, such as that of a dump: a step that fails stops the
 * work here, and its code becomes the result. */
static int show(const tq_flash_event* event, void* user) {
  const char** failed = user;
  const int code = event->code == -1 ? errno : event->code; /* as the type of the event says */
  const int has_failed = code != 0 && event->step != TQ_FLASH_VERSION;
  if (event->kind == TQ_FLASH_BEGIN) {
    printf("%s: %s", event->area != NULL ? event->area : "image", step_name(event->step));
    if (event->file != NULL) printf(" %s", event->file);
    printf("\n");
  } else if (event->kind == TQ_FLASH_LINE) {
    if (strstr(event->line, "uncorrectable") != NULL) printf("  %s\n", event->line);
  } else if (has_failed) {
    *failed = step_name(event->step);
  } else if (event->file != NULL) {
    printf("  %llu bytes\n", (unsigned long long)event->bytes);
  }
  fflush(stdout);
  if (has_failed) return code;
  return interrupted ? ECANCELED : 0;
}

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: %s IMAGE AREA...\n", argv[0]);
    return EXIT_FAILURE;
  }
  tq_list_t* areas = tq_list_create();
  for (int at = 2; areas != NULL && at < argc; ++at) {
    if (tq_list_add(areas, argv[at]) != 0) return EXIT_FAILURE;
  }
  if (areas == NULL) return EXIT_FAILURE;

  const char* failed = NULL;
  const tq_flash_observer observer = {show, &failed};
  tq_set_flash_observer(&observer);
  signal(SIGINT, interrupt);
  const int code = tq_lib_backup_areas(areas, ".", argv[1], 1);
  tq_list_free(areas, 0); /* the names are argv's */
  if (code == 0) return EXIT_SUCCESS;
  char text[128] = "";
  fprintf(stderr, "%s: %s\n", failed != NULL ? failed : "backup",
          tq_strerror_r(code, text, sizeof text));
  return EXIT_FAILURE;
}
