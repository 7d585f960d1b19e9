#include <errno.h>
#include <stdlib.h>

#include <utility>

#include "base/chain.h"
#include "base/list_appender.h"
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
  tarvio::TextList list;
  const int result = tq_files(name, list.get());
  TQ_DEBUG("returned tq_files code %d", result);
  if (result != 0) return result;

  const int32_t size = list.get()->count;
  TQ_DEBUG("returned size %d", size);
  if (size == 0) return 0;
  auto** array = static_cast<char**>(malloc(static_cast<size_t>(size) * sizeof(char*)));
  if (array == nullptr) return ENOMEM;
  char** next = array;
  // Node by node: a null element has its place in the array, although other walks end at it (oddity
  // 11). The strings are the caller's from here on.
  for (tq_list_node& node : tarvio::Chain<tq_list_node>{list.get()->head}) {
    *next++ = static_cast<char*>(std::exchange(node.element, nullptr));
  }
  *files = array;
  *count = static_cast<uint32_t>(size);
  return 0;
}

char* tq_lib_get_err_mes(int32_t code) { return tq_get_err_mes(code); }
