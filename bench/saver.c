/* Backs an area up by the library and prints the most memory that this process ever had, in KiB. */
#include <stdio.h>
#include <tarvio/tarvio.h>

static long peak_kib(void) {
  char line[256];
  long kib = 0;
  FILE* status = fopen("/proc/self/status", "re");
  if (status == NULL) return 0;
  while (fgets(line, sizeof line, status) != NULL) {
    if (sscanf(line, "VmHWM: %ld", &kib) == 1) break;
  }
  (void)fclose(status);
  return kib;
}

int main(int argc, char** argv) {
  tq_list_t* areas = tq_list_create();
  char* name = NULL;
  int result;
  if (argc != 4 || areas == NULL) return 2;
  tq_strdup(&name, argv[1]);
  if (name == NULL || tq_list_add(areas, name) != 0) return 2;
  result = tq_lib_backup_areas(areas, argv[2], argv[3], 1);
  tq_list_free(areas, 1);
  printf("%ld\n", peak_kib());
  return result == 0 ? 0 : 1;
}
