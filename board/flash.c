/* Saves areas of the board's flash, and writes them back, by the library alone.
 *
 *   board-flash backup FOLDER PACKAGE AREA...
 *   board-flash restore FOLDER PACKAGE
 *
 * FOLDER is where the areas' files go. Ends with 1 when the library's result is not 0, and prints
 * that. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tarvio/tarvio.h"

static int report(const char* call, int code) {
  if (code == 0) return EXIT_SUCCESS;
  char* text = tq_get_err_mes(code);
  fprintf(stderr, "%s: %d, %s\n", call, code, text == NULL ? "unknown" : text);
  free(text);
  return EXIT_FAILURE;
}

int main(int count, char** arguments) {
  if (count > 4 && strcmp(arguments[1], "backup") == 0) {
    tq_list_t* areas = tq_list_create();
    for (int i = 4; i < count; ++i) tq_list_add(areas, arguments[i]);
    const int code = tq_tbx_backup_areas(areas, arguments[2], arguments[3], 1);
    tq_list_free(areas, 0);
    return report("tq_tbx_backup_areas", code);
  }
  if (count == 4 && strcmp(arguments[1], "restore") == 0) {
    return report("tq_tbx_restore", tq_tbx_restore(arguments[3], arguments[2]));
  }
  fputs("usage: board-flash backup FOLDER PACKAGE AREA... | restore FOLDER PACKAGE\n", stderr);
  return 64;
}
