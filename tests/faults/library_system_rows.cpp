// Rows of functions that run tools, talk to the manager, or start processes.
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "faults/library_rows.h"
#include "tarvio/tarvio.h"

namespace faults {

namespace {

// Owns a list of strings.
class Lines {
 public:
  ~Lines() { (void)tq_list_free(list_, 1); }
  tq_list_t* get() const { return list_; }
  bool is_valid() const { return list_ != nullptr; }
  void show() const {
    for (void* each = tq_list_first(list_); each != nullptr; each = tq_list_next(list_)) {
      std::printf("%s\n", static_cast<char*>(each));
    }
  }

 private:
  tq_list_t* const list_ = tq_list_create();
};

bool commands() {
  const Lines lines;
  if (!lines.is_valid() || tq_system_command("echo one; echo two", lines.get()) != 0) return false;
  lines.show();
  char program[] = "true";
  char* arguments[] = {program, nullptr};
  return tq_run_command(1, arguments) == 0;
}

bool processes() {
  int pid = -1;
  int output = -1;
  if (tq_create_process("echo word", TQ_PIPE_STDOUT, &pid, nullptr, &output, nullptr) != 0 ||
      pid < 0) {
    return false;
  }
  char line[16] = "";
  const bool is_read = tq_fdgets(line, sizeof line, output) != nullptr;
  if (is_read) std::printf("%s", line);
  (void)close(output);
  return is_read;
}

bool archives() {
  const char* const files[] = {"settings"};
  return tq_archive_tgz("settings.tgz", 1, files) == 0 &&
         tq_extract_from_tgz("settings.tgz", "settings") == 0 &&
         tq_archive_ar("settings.ar", 1, files) == 0 &&
         tq_extract_from_ar("settings.ar", "settings") == 0 && tq_dd("settings", "copy", 1, 4) == 0;
}

bool package_data() {
  tq_pkg_data* const data = tq_pkg_data_open("echo 'a heading of sixteen'; echo one; echo two");
  if (data == nullptr) return false;
  const bool succeeds = tq_pkg_data_write(data, "three") == 0;
  for (int32_t i = 0; i < tq_pkg_data_count(data); ++i) {
    // A line that found no memory is null (oddity 139).
    const char* const line = tq_pkg_data_find(data, static_cast<uint32_t>(i));
    std::printf("%s\n", line == nullptr ? "(null)" : line);
  }
  return tq_pkg_data_close(data) == 0 && succeeds;
}

bool flash() {
  int bad = -1;
  int length = 0;
  if (tq_nand_count_badblock("/dev/mtd3", &bad) != 0 ||
      tq_nand_get_writable_len("settings", TQ_IMAGE_KERNEL, bad, &length) != 0 ||
      tq_erase_flash("/dev/mtd1", 0, 0x20000) != 0 || tq_erase_flash_all("/dev/mtd1") != 0 ||
      tq_nandwrite("page", "/dev/mtd1", 0) != 0 ||
      tq_nanddump("/dev/mtd1", "dump", 0, 0x800) != 0) {
    return false;
  }
  std::printf("%d %d\n", bad, length);
  return true;
}

bool backups() {
  const Lines areas;
  char* const name = areas.is_valid() ? strdup("bootloader") : nullptr;
  if (name == nullptr) return false;
  if (tq_list_add(areas.get(), name) != 0) {
    free(name);
    return false;
  }
  std::printf("%d %d %d\n", tq_lib_backup_all(), tq_lib_backup_rootfs(), tq_lib_backup_kernel());
  return tq_lib_backup_areas(areas.get(), ".", "image.tbx", 1) == 0 &&
         tq_lib_backup_restore("image.tbx", ".") == 0;
}

bool installation() {
  const Lines files;
  return files.is_valid() && tq_setup_package_manager() == 0 &&
         tq_lib_install_pkg("app-1.0.tbx", 0) == 0;
}

bool removal() { return tq_setup_package_manager() == 0 && tq_lib_remove_pkg("app", 0) == 0; }

bool package_files() {
  uint32_t count = 0;
  char** files = nullptr;
  if (tq_setup_package_manager() != 0 || tq_lib_files_pkg("app", &count, &files) != 0) return false;
  for (uint32_t i = 0; i < count; ++i) {
    std::printf("%s\n", files[i]);
    free(files[i]);
  }
  free(files);
  return true;
}

bool package_checks() {
  int32_t type = -1;
  const Lines targets;
  if (!targets.is_valid() || tq_setup_package_manager() != 0 ||
      tq_check_file_size("app-1.0.tbx") != 0 ||
      tq_tbx_get_package_type("app-1.0.tbx", &type, targets.get()) != 0) {
    return false;
  }
  std::printf("%d\n", type);
  targets.show();
  return true;
}

bool boot_tests() {
  int is_online = -1;
  if (tq_is_boot_online(&is_online) != 0) return false;
  std::printf("%d\n", is_online);
  return true;
}

bool statuses() {
  const Lines lines;
  if (!lines.is_valid()) return false;
  const int fd = tq_request_com(TQ_COM_SOCKET_PATH, "status_all", 0, nullptr);
  if (fd < 0) return false;
  (void)tq_receive_com(fd, lines.get());
  (void)tq_socket_close(fd);
  lines.show();
  return true;
}

bool show_records(int (*ask)(tq_list_t*)) {
  tq_list_t* const list = tq_list_create();
  if (list == nullptr || ask(list) != 0) {
    (void)tq_list_free(list, 0);
    return false;
  }
  for (void* each = tq_list_first(list); each != nullptr; each = tq_list_next(list)) {
    const auto* const status = static_cast<tq_status*>(each);
    std::printf("%d %s", status->id, status->name);
  }
  (void)tq_status_list_free(list);
  return true;
}

bool status_records() {
  return show_records(tq_lib_list_all_status) && show_records(tq_lib_list_app_status);
}

bool remote_starts() { return tq_lib_start_app("clock") == 0 && tq_lib_stop_app("clock") == 0; }

bool remote_starts_of_all() { return tq_lib_start_all_app() == 0 && tq_lib_stop_all_app() == 0; }

bool start_and_stop(int (*start)(const char*), int (*stop)(const char*)) {
  if (tq_setup_status_manager() != 0 || tq_setup_package_manager() != 0 ||
      tq_setup_app_manager() != 1) {
    return false;
  }
  std::printf("%d\n", tq_list_size(tq_known_applications()));
  const bool succeeds = start("clock") == 0 && stop("clock") == 0;
  (void)tq_status_list_free(sl);
  sl = nullptr;
  return succeeds;
}

bool applications() { return start_and_stop(tq_start_app, tq_stop_app); }

bool applications_by_name() { return start_and_stop(tq_start_app_exact, tq_stop_app_exact); }

bool refresh_applications() {
  tq_refresh_result result = {};
  const bool succeeds = tq_refresh_applications(&result) == 0;
  std::printf("%d %d %d\n", result.added, result.removed, result.changed);
  return succeeds;
}

// With an application that goes and comes again.
bool refreshed_applications() {
  constexpr char kControl[] = "/usr/lib/opkg/info/clock.control";
  constexpr char kAway[] = "/usr/lib/opkg/info/clock.away";
  if (tq_setup_status_manager() != 0 || tq_setup_package_manager() != 0 ||
      tq_setup_app_manager() != 1 || tq_list_size(tq_known_applications()) != 2) {
    return false;
  }
  const bool is_removed = std::rename(kControl, kAway) == 0 && refresh_applications();
  const bool succeeds = std::rename(kAway, kControl) == 0 && refresh_applications() && is_removed;
  (void)tq_status_list_free(sl);
  sl = nullptr;
  return succeeds;
}

bool log_reading() {
  const Lines lines;
  if (!lines.is_valid() || tq_log_read("cat settings", nullptr, lines.get()) != 0) return false;
  lines.show();
  free(tq_last_syslog);
  tq_last_syslog = nullptr;
  return true;
}

bool all_applications() {
  if (tq_setup_status_manager() != 0 || tq_setup_package_manager() != 0 ||
      tq_setup_app_manager() != 1) {
    return false;
  }
  const bool succeeds = tq_start_all_app() == 0 && tq_stop_all_app() == 0;
  (void)tq_status_list_free(sl);
  sl = nullptr;
  return succeeds;
}

bool sockets() {
  const int server = tq_socket_create_unix_sock();
  const int peer = tq_socket_create_unix_sock();
  const bool succeeds = server >= 0 && peer >= 0 &&
                        tq_socket_bind_unix_server_sock(server, "socket") == 0 &&
                        tq_socket_connect_unix_sock(peer, "socket") == 0;
  const int accepted = succeeds ? tq_socket_accept_unix_sock(server) : -1;
  for (const int fd : {server, peer, accepted}) {
    if (fd >= 0) (void)tq_socket_close(fd);
  }
  return accepted >= 0;
}

uint32_t answer(int32_t client) {
  (void)send(client, "served\n", 7, MSG_NOSIGNAL);
  return static_cast<uint32_t>(close(client));
}

bool com_servers() {
  const Lines lines;
  const int server = lines.is_valid() ? tq_setup_com_server("socket", answer) : -1;
  if (server < 0) return false;
  bool succeeds = tq_wait_com(server) == 0;
  // Without its thread nobody would answer.
  const int fd = succeeds ? tq_request_com("socket", "word", 0, nullptr) : -1;
  if (fd >= 0) {
    (void)tq_receive_com(fd, lines.get());
    (void)tq_socket_close(fd);
  }
  lines.show();
  succeeds = tq_stop_com_server(server) == 0 && succeeds;
  return succeeds && fd >= 0;
}

// Its thread outlives the row.
bool com_managers() { return tq_setup_com_manager() == 0; }

int greet(const char* name) {
  std::printf("greeted %s\n", name == nullptr ? "(null)" : name);
  return 0;
}

// A request that the manager of this process answers itself.
bool serve(std::string_view request) {
  int ends[2];
  char answer[64] = "";
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return false;
  const auto size = static_cast<ssize_t>(request.size());
  bool succeeds =
      send(ends[0], request.data(), request.size(), 0) == size && shutdown(ends[0], SHUT_WR) == 0;
  if (succeeds) (void)tq_request_handler(ends[1]);
  succeeds = succeeds && recv(ends[0], answer, sizeof answer - 1, MSG_DONTWAIT) > 0;
  std::printf("%s", answer);
  // The handler has closed the other one.
  (void)close(ends[0]);
  return succeeds;
}

bool served_requests() {
  constexpr tq_com_word kWords[] = {{"greet", greet, nullptr}, {nullptr, nullptr, nullptr}};
  if (tq_setup_status_manager() != 0 || tq_setup_package_manager() != 0 ||
      tq_setup_app_manager() != 1) {
    return false;
  }
  tq_set_com_words(kWords);
  const bool succeeds = serve("start_app\nnone\n") && serve("greet\nclock\n");
  tq_set_com_words(nullptr);
  (void)tq_list_free(sl, 0);
  sl = nullptr;
  return succeeds;
}

bool images() {
  return tq_create_image_controls("image.tbx", "1.0") == 0 &&
         tq_create_image_data_tgz("settings", "data", 4, 8) == 0 &&
         tq_mkfs_jffs2("tree", "image.jffs2") == 0 &&
         tq_restore_flash_image("page", "/dev/mtd1", 0, 0x20000) == 0;
}

constexpr Row kRows[] = {{"commands", commands},
                         {"all-applications", all_applications},
                         {"applications-by-name", applications_by_name},
                         {"remote-starts-of-all", remote_starts_of_all},
                         {"com-servers", com_servers},
                         {"com-managers", com_managers},
                         {"sockets", sockets},
                         {"served-requests", served_requests},
                         {"images", images},
                         {"processes", processes},
                         {"archives", archives},
                         {"package-data", package_data},
                         {"flash", flash},
                         {"backups", backups},
                         {"installation", installation},
                         {"removal", removal},
                         {"package-files", package_files},
                         {"package-checks", package_checks},
                         {"boot-tests", boot_tests},
                         {"statuses", statuses},
                         {"status-records", status_records},
                         {"remote-starts", remote_starts},
                         {"applications", applications},
                         {"refreshed-applications", refreshed_applications},
                         {"log-reading", log_reading}};

}  // namespace

Calls find_system_row(std::string_view name) {
  for (const Row& row : kRows) {
    if (row.name == name) return row.calls;
  }
  return nullptr;
}

}  // namespace faults
