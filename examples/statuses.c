/* Lists the installed applications and the statuses that the resident manager keeps. */
#include <stdio.h>
#include <stdlib.h>

#include <tarvio/tarvio.h>

int main(void) {
  tq_package_info* packages = NULL;
  const int code = tq_lib_list_pkg(TQ_CATEGORY_APPLICATION, TQ_SUBCATEGORY_ANY, NULL, &packages);
  if (code != 0) {
    char* text = tq_lib_get_err_mes(code);
    fprintf(stderr, "cannot list the packages: %s\n", text != NULL ? text : "out of memory");
    free(text);
    return EXIT_FAILURE;
  }
  for (const tq_package_info* package = packages; package != NULL; package = package->next) {
    printf("installed: %s %s\n", package->name, package->version);
  }
  tq_delete_tq_package_info_recurse(&packages);

  /* The list stays empty when no manager answers. */
  tq_list_t* statuses = tq_list_create();
  if (statuses == NULL || tq_lib_list_app_status(statuses) != 0) {
    fprintf(stderr, "cannot ask the manager\n");
    tq_status_list_free(statuses);
    return EXIT_FAILURE;
  }
  for (tq_status* status = tq_list_first(statuses); status != NULL;
       status = tq_list_next(statuses)) {
    /* A client finds the state in `id`, and the texts with their line ends. */
    printf("%s: state %d, %s\n", tq_chop(status->name), status->id, tq_chop(status->detail));
  }
  tq_status_list_free(statuses);
  return EXIT_SUCCESS;
}
