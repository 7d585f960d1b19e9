#include <errno.h>
#include <stdlib.h>

#include "base/owners.h"
#include "tarvio/client.h"
#include "tarvio/error.h"
#include "util/log_macros.h"

int tq_lib_list_pkg(uint32_t type, uint32_t subtype, const char* name, tq_package_info** out) {
  (void)tq_setup_package_manager();
  return tq_list(type, subtype, name, out);
}

int tq_lib_install_pkg(const char* path, int force) {
  (void)tq_setup_package_manager();
  return tq_install(path, force);
}

int tq_lib_remove_pkg(const char* name, int force) {
  (void)tq_setup_package_manager();
  return tq_remove(name, force);
}

int tq_lib_files_pkg(const char* name, uint32_t* count, char*** files) {
  if (count == nullptr || files == nullptr) return EINVAL;
  *files = nullptr;
  *count = 0;
  (void)tq_setup_package_manager();
  tarvio::StringList list(tq_list_create());
  if (list == nullptr) return ENOMEM;
  const int result = tq_files(name, list.get());
  TQ_DEBUG("returned tq_files code %d", result);
  if (result != 0) return result;

  const auto size = static_cast<uint32_t>(tq_list_size(list.get()));
  TQ_DEBUG("returned size %d", tq_list_size(list.get()));
  if (size == 0) return 0;
  auto** array = static_cast<char**>(malloc(size * sizeof(char*)));
  if (array == nullptr) return ENOMEM;
  char** next = array;
  // Every element has its place, also one that is none, at which other walks end.
  for (const tq_list_node* node = list->head; node != nullptr; node = node->next) {
    *next++ = static_cast<char*>(node->element);
  }
  tq_list_free(list.release(), 0);  // the strings are the caller's now
  *files = array;
  *count = size;
  return 0;
}

char* tq_lib_get_err_mes(int32_t code) { return tq_get_err_mes(code); }
