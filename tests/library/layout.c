/* The layouts of the public records, which programs that are linked already have compiled in: where
 * each field lies and how large the record is, with pointers of 4 bytes, as on the device, and
 * of 8. */
#include <stddef.h>

#include "tarvio/tarvio.h"

#define WITH_POINTERS_OF(four, eight) (sizeof(void*) == 4 ? (four) : (eight))
#define FIELD(record, field, four, eight)                                  \
  _Static_assert(offsetof(record, field) == WITH_POINTERS_OF(four, eight), \
                 #record "." #field " has moved")
#define SIZE(record, four, eight) \
  _Static_assert(sizeof(record) == WITH_POINTERS_OF(four, eight), #record " has another size")

FIELD(tq_app_binding, setup, 0, 0);
FIELD(tq_app_binding, is_mine, 4, 8);
FIELD(tq_app_binding, start, 8, 16);
FIELD(tq_app_binding, stop, 12, 24);
SIZE(tq_app_binding, 16, 32);

FIELD(tq_app_info, binding, 0, 0);
FIELD(tq_app_info, package, 4, 8);
FIELD(tq_app_info, stopped, 8, 16);
FIELD(tq_app_info, pid, 12, 24);
SIZE(tq_app_info, 16, 32);

FIELD(tq_com_server, path, 0, 0);
FIELD(tq_com_server, fd, 4, 8);
FIELD(tq_com_server, handler, 8, 16);
FIELD(tq_com_server, thread, 12, 24);
SIZE(tq_com_server, 16, 32);

FIELD(tq_com_word, word, 0, 0);
FIELD(tq_com_word, serve, 4, 8);
FIELD(tq_com_word, rest, 8, 16);
SIZE(tq_com_word, 12, 24);

FIELD(tq_conf_pair, name, 0, 0);
FIELD(tq_conf_pair, value, 4, 8);
SIZE(tq_conf_pair, 8, 16);

FIELD(tq_conf, count, 0, 0);
FIELD(tq_conf, pairs, 4, 8);
SIZE(tq_conf, 8, 16);

FIELD(tq_err_code, code, 0, 0);
FIELD(tq_err_code, message, 4, 8);
SIZE(tq_err_code, 8, 16);

FIELD(tq_flash_event, kind, 0, 0);
FIELD(tq_flash_event, step, 4, 4);
FIELD(tq_flash_event, code, 8, 8);
FIELD(tq_flash_event, start, 12, 12);
FIELD(tq_flash_event, bytes, 16, 16);
FIELD(tq_flash_event, area, 24, 24);
FIELD(tq_flash_event, file, 28, 32);
FIELD(tq_flash_event, device, 32, 40);
FIELD(tq_flash_event, line, 36, 48);
SIZE(tq_flash_event, 40, 56);

FIELD(tq_flash_observer, observe, 0, 0);
FIELD(tq_flash_observer, user, 4, 8);
SIZE(tq_flash_observer, 8, 16);

FIELD(tq_list_node, next, 0, 0);
FIELD(tq_list_node, element, 4, 8);
SIZE(tq_list_node, 8, 16);

FIELD(tq_list_t, head, 0, 0);
FIELD(tq_list_t, cursor, 4, 8);
FIELD(tq_list_t, count, 8, 16);
SIZE(tq_list_t, 12, 24);

FIELD(tq_log_binding, setup, 0, 0);
FIELD(tq_log_binding, start_monitor, 4, 8);
FIELD(tq_log_binding, stop_monitor, 8, 16);
FIELD(tq_log_binding, set_log_hook, 12, 24);
FIELD(tq_log_binding, remove_log_hook, 16, 32);
SIZE(tq_log_binding, 20, 40);

FIELD(tq_package_binding, setup, 0, 0);
FIELD(tq_package_binding, list, 4, 8);
FIELD(tq_package_binding, install, 8, 16);
FIELD(tq_package_binding, files, 12, 24);
FIELD(tq_package_binding, remove, 16, 32);
FIELD(tq_package_binding, check_file_sign, 20, 40);
FIELD(tq_package_binding, check_file_size, 24, 48);
FIELD(tq_package_binding, check_dependency, 28, 56);
FIELD(tq_package_binding, file_corruption, 32, 64);
SIZE(tq_package_binding, 36, 72);

FIELD(tq_package_info, name, 0, 0);
FIELD(tq_package_info, version, 4, 8);
FIELD(tq_package_info, type, 8, 16);
FIELD(tq_package_info, subtype, 12, 20);
FIELD(tq_package_info, maintainer, 16, 24);
FIELD(tq_package_info, start_app, 20, 32);
FIELD(tq_package_info, stop_app, 24, 40);
FIELD(tq_package_info, next, 28, 48);
SIZE(tq_package_info, 32, 56);

FIELD(tq_pkg_data, count, 0, 0);
FIELD(tq_pkg_data, lines, 4, 8);
SIZE(tq_pkg_data, 8, 16);

FIELD(tq_refresh_result, added, 0, 0);
FIELD(tq_refresh_result, removed, 4, 4);
FIELD(tq_refresh_result, changed, 8, 8);
SIZE(tq_refresh_result, 12, 12);

FIELD(tq_status, type, 0, 0);
FIELD(tq_status, id, 4, 4);
FIELD(tq_status, state, 8, 8);
FIELD(tq_status, detail, 12, 16);
FIELD(tq_status, name, 16, 24);
FIELD(tq_status, next, 20, 32);
SIZE(tq_status, 24, 40);

FIELD(tq_syslog_line, level, 0, 0);
FIELD(tq_syslog_line, ident, 4, 8);
FIELD(tq_syslog_line, message, 8, 16);
SIZE(tq_syslog_line, 12, 24);

FIELD(tq_table_pair, key, 0, 0);
FIELD(tq_table_pair, value, 4, 8);
SIZE(tq_table_pair, 8, 16);

FIELD(tq_table, pairs, 0, 0);
SIZE(tq_table, 4, 8);
