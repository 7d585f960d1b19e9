#include "tarvio/backup.h"
#include "util/log_macros.h"

int tq_lib_backup_areas(tq_list_t* areas, const char* workdir, const char* dest, int archive) {
  if (dest != nullptr) {
    TQ_DEBUG("workdir - %s , dest file - %s", workdir, dest);
  } else {
    TQ_DEBUG("workdir - %s , archive - %d", workdir, archive);
  }
  return tq_tbx_backup_areas(areas, workdir, dest, archive);
}

int tq_lib_backup_restore(const char* package, const char* workdir) {
  return tq_tbx_restore(package, workdir);
}

// Reserved (oddity 155).
int tq_lib_backup_all(void) { return 0; }

int tq_lib_backup_rootfs(void) { return 0; }

int tq_lib_backup_kernel(void) { return 0; }
