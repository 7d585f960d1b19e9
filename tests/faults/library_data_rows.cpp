// Rows of functions that work on data: no process, no socket.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "faults/library_rows.h"
#include "tarvio/tarvio.h"

namespace faults {

namespace {

const char* text(const void* string) {
  return string == nullptr ? "(null)" : static_cast<const char*>(string);
}

char first[] = "first";
char second[] = "second";
char third[] = "third";

bool lists() {
  tq_list_t* const list = tq_list_create();
  if (list == nullptr) return false;
  bool succeeds = true;
  for (char* const element : {first, second, third}) {
    succeeds = tq_list_add(list, element) == 0 && succeeds;
  }
  if (succeeds) {
    void* got = nullptr;
    (void)tq_list_get(list, 1, &got);
    std::printf("%d %s %s", tq_list_size(list), static_cast<char*>(got),
                static_cast<char*>(tq_list_get_last(list)->element));
    std::printf(" %d %d\n", tq_list_indexof(list, third), tq_list_remove(list, 0));
    for (void* each = tq_list_first(list); each != nullptr; each = tq_list_next(list)) {
      std::printf("%s\n", static_cast<char*>(each));
    }
  }
  (void)tq_list_free(list, 0);
  return succeeds;
}

bool tables() {
  tq_table* const table = tq_table_create();
  if (table == nullptr) return false;
  bool succeeds = true;
  for (char* const key : {first, second, third}) {
    succeeds = tq_table_put(table, key, key) == 0 && succeeds;
  }
  if (succeeds) {
    std::printf("%d %s %d\n", tq_table_size(table),
                static_cast<char*>(tq_table_get(table, "second")), tq_table_remove(table, "first"));
    for (const char* key = tq_table_first(table); key != nullptr; key = tq_table_next(table)) {
      std::printf("%s\n", key);
    }
  }
  (void)tq_table_free(table, 0);
  return succeeds;
}

bool show_and_close(tq_conf* conf) {
  if (conf == nullptr) return false;
  for (int i = 0; i < tq_count_variables(conf); ++i) {
    std::printf("%s=%s\n", tq_find_name(conf, i), tq_find_value(conf, i));
  }
  return tq_conf_close(conf) == 0;
}

bool configurations() {
  tq_conf* const conf = tq_conf_open("settings");
  if (conf == nullptr) return false;
  const bool succeeds =
      tq_conf_write(conf, "added", "value") == 0 && tq_conf_write(conf, "one", "changed") == 0;
  if (succeeds) std::printf("%s\n", tq_conf_read(conf, "one"));
  return show_and_close(conf) && succeeds;
}

bool configurations_with_blanks() { return show_and_close(tq_conf_open2("settings")); }

bool strings() {
  char* copy = nullptr;
  void* bytes = nullptr;
  bool succeeds = tq_strdup(&copy, "some text") == 0;
  if (succeeds) std::printf("%s\n", text(copy));
  succeeds = tq_memdup(&bytes, "bytes", 6) == 0 && succeeds;
  if (succeeds) std::printf("%s\n", text(bytes));
  free(copy);
  free(bytes);
  char line[64] = "some text";
  std::printf("%s %d %d\n", tq_replace_string(line, "some", "other"),
              tq_str_startwith(line, "other"), tq_str_equals(line, "other text"));
  return succeeds;
}

bool words() {
  char** const found = tq_strtok("some words of a line", " ");
  if (found == nullptr) return false;
  for (char** each = found; *each != nullptr; ++each) std::printf("%s\n", *each);
  free(*found);
  free(found);
  return true;
}

bool files() {
  uint32_t size = 0;
  int32_t is_file = 0;
  int32_t is_directory = 0;
  if (tq_get_file_length("settings", &size) != 0 || tq_file_exist("settings", &is_file) != 0 ||
      tq_dir_exist(".", &is_directory) != 0) {
    return false;
  }
  std::printf("%u %d %d\n", size, is_file, is_directory);
  return tq_copy_file("settings", "copy") == 0 && tq_file_delete("settings") == 0;
}

bool messages() {
  char buffer[128];
  std::printf("%s\n", tq_strerror_r(TQ_ERR_PACKAGE_NO_SPACE, buffer, sizeof buffer));
  char* const message = tq_get_err_mes(TQ_ERR_PACKAGE_MALFORMED);
  if (message == nullptr) return false;
  std::printf("%s\n", message);
  free(message);
  char* const same = tq_lib_get_err_mes(2);
  if (same == nullptr) return false;
  std::printf("%s\n", same);
  free(same);
  return true;
}

void show(const tq_status* head) {
  for (; head != nullptr; head = head->next) {
    std::printf("%d %s %s\n", head->state, text(head->name), text(head->detail));
  }
}

bool status_chains() {
  tq_status* head = nullptr;
  tq_status* found = nullptr;
  tq_status* copy = nullptr;
  bool succeeds = tq_create_tq_status(TQ_STATE_NORMAL, 0, "clock", "one", &head) == 0;
  succeeds = succeeds && tq_create_tq_status(TQ_STATE_ERROR, 0, "radio", "two", &head) == 0;
  succeeds = succeeds && tq_copy_tq_status(head, &copy) == 0;
  succeeds = succeeds && tq_search_tq_status_by_state(TQ_STATE_ERROR, head, &found) == 0;
  if (succeeds) show(head);
  if (succeeds) show(copy);
  if (succeeds) show(found);
  show_list(head);
  for (tq_status** each : {&head, &copy, &found}) (void)tq_delete_tq_status_recurse(each);
  return succeeds;
}

bool status_manager() {
  bool succeeds = tq_setup_status_manager() == 0 &&
                  tq_set_application_status_normal("clock", "one") == 0 &&
                  tq_set_application_status_error("radio", "two") == 0 &&
                  tq_change_status_by_log("clock", TQ_STATE_THIRD, "three") == 0;
  tq_list_t* all = nullptr;
  succeeds = succeeds && tq_find_all_status2(&all) == 0;
  for (void* each = all == nullptr ? nullptr : tq_list_first(all); each != nullptr;
       each = tq_list_next(all)) {
    const auto* const status = static_cast<tq_status*>(each);
    std::printf("%d %s %s\n", status->state, text(status->name), text(status->detail));
  }
  (void)tq_status_list_free(all);
  // A record that found no memory cannot be removed by its name (oddity 37).
  (void)tq_status_list_free(sl);
  sl = nullptr;
  return succeeds;
}

void show(const tq_package_info* package) {
  for (; package != nullptr; package = package->next) {
    std::printf("%s %s %d %s\n", text(package->name), text(package->version), package->type,
                text(package->start_app));
  }
}

bool packages() {
  tq_package_info* all = nullptr;
  tq_package_info* named = nullptr;
  tq_package_info* copy = nullptr;
  bool succeeds = tq_setup_package_manager() == 0 &&
                  tq_lib_list_pkg(TQ_CATEGORY_ANY, TQ_SUBCATEGORY_ANY, nullptr, &all) == 0;
  if (succeeds) show(all);
  succeeds = succeeds && tq_name_filter_package("a", all, &named) == 0;
  if (succeeds) show(named);
  succeeds = succeeds && tq_copy_package_info(&copy, all, 1) == 0;
  if (succeeds) show(copy);
  for (tq_package_info** each : {&all, &named, &copy}) {
    (void)tq_delete_tq_package_info_recurse(each);
  }
  return succeeds;
}

bool log_lines() {
  tq_syslog_line* const line = tq_parse_syslog("Jan  1 00:00:12 board user.err clock[12]: full\n");
  if (line == nullptr) return false;
  std::printf("%d %s %s\n", line->level, line->ident, line->message);
  free(line->ident);
  free(line->message);
  free(line);
  return true;
}

bool collects(int (*find)(int32_t, tq_list_t**), int32_t wanted) {
  tq_list_t* found = nullptr;
  if (find(wanted, &found) != 0) {
    (void)tq_status_list_free(found);
    return false;
  }
  std::printf("%d\n", tq_list_size(found));
  (void)tq_status_list_free(found);
  return true;
}

bool status_searches() {
  char name[] = "clock";
  char detail[] = "one";
  const tq_status status = {0, 0, TQ_STATE_NORMAL, detail, name, nullptr};
  tq_status* found = nullptr;
  bool succeeds = tq_setup_status_manager() == 0 && tq_add_status2(&status) == 0 &&
                  tq_set_status2(&status, 1) == 0 && collects(tq_find_by_type2, 0) &&
                  collects(tq_find_by_status2, TQ_STATE_NORMAL);
  succeeds = succeeds && tq_search_tq_status_by_type(0, &status, &found) == 0;
  (void)tq_delete_tq_status_recurse(&found);
  show_list2(sl);
  if (succeeds) std::printf("%d %d\n", tq_remove_status2("clock"), tq_list_size(sl));
  (void)tq_status_list_free(sl);
  sl = nullptr;
  return succeeds;
}

bool status_list_searches() {
  char name[] = "clock";
  char detail[] = "one";
  tq_status status = {0, 0, TQ_STATE_NORMAL, detail, name, nullptr};
  tq_list_t* const source = tq_list_create();
  tq_list_t* const found = tq_list_create();
  // A name that matches would match its copies as well, until no memory is left.
  const bool succeeds = source != nullptr && found != nullptr &&
                        tq_list_add(source, &status) == 0 &&
                        tq_search_tq_status_by_state2(TQ_STATE_NORMAL, source, found) == 0 &&
                        tq_search_tq_status_by_type2(0, source, found) == 0 &&
                        tq_search_tq_status_by_name2("radio", found) == 0;
  if (succeeds) std::printf("%d\n", tq_list_size(found));
  (void)tq_status_list_free(found);
  (void)tq_list_free(source, 0);
  return succeeds;
}

bool log_hooks() {
  char ident[] = "clock";
  char message[] = "full";
  const tq_syslog_line line = {2, ident, message};
  char* const hook = strdup("clock");
  if (hook == nullptr) return false;
  const bool succeeds = tq_setup_log_manager() == 0 && tq_set_log_hook(hook) == 0;
  if (!succeeds) free(hook);
  if (succeeds) std::printf("%s\n", text(tq_check_log_hook(&line)));
  std::printf("%d %d\n", tq_start_monitor(&tq_log_monitor), tq_stop_monitor(&tq_log_monitor));
  std::printf("%s\n", text(tq_monitor_syslog(message)));
  (void)tq_remove_log_hook("clock");
  (void)tq_list_free(syslog_hook, 0);
  syslog_hook = nullptr;
  return succeeds;
}

bool complaints() {
  char line[] = "ERROR: Only have 12kb available on filesystem /opt, pkg app needs 99";
  tq_list_t* const lines = tq_list_create();
  if (lines == nullptr) return false;
  const bool succeeds = tq_list_add(lines, line) == 0;
  if (succeeds) std::printf("%d\n", tq_check_command_result_error(lines));
  (void)tq_list_free(lines, 0);
  tq_log_func(TQ_LOG_ERROR, "faults", 1, "%s", line);
  return succeeds;
}

bool package_filters() {
  tq_package_info* all = nullptr;
  tq_package_info* some = nullptr;
  bool succeeds = tq_setup_package_manager() == 0 && tq_list(100, 151, "app", &all) == 0;
  succeeds = succeeds && tq_type_filter_package(TQ_CATEGORY_ANY, 151, all, &some) == 0;
  if (succeeds) show(some);
  for (tq_package_info** each : {&all, &some}) (void)tq_delete_tq_package_info_recurse(each);
  return succeeds;
}

constexpr Row kRows[] = {{"lists", lists},
                         {"status-searches", status_searches},
                         {"status-list-searches", status_list_searches},
                         {"log-hooks", log_hooks},
                         {"complaints", complaints},
                         {"package-filters", package_filters},
                         {"tables", tables},
                         {"configurations", configurations},
                         {"configurations-with-blanks", configurations_with_blanks},
                         {"strings", strings},
                         {"words", words},
                         {"files", files},
                         {"messages", messages},
                         {"status-chains", status_chains},
                         {"status-manager", status_manager},
                         {"packages", packages},
                         {"log-lines", log_lines}};

}  // namespace

Calls find_data_row(std::string_view name) {
  for (const Row& row : kRows) {
    if (row.name == name) return row.calls;
  }
  return nullptr;
}

}  // namespace faults
