#include "board/system_facts.h"

#include <dlfcn.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "base/deadline.h"
#include "base/line_cutter.h"
#include "base/owners.h"
#include "base/pipe.h"
#include "board/opkg_records.h"
#include "process/kernel_text.h"
#include "process/system_file.h"
#include "tarvio/com.h"
#include "tarvio/list.h"

namespace agent {

namespace {

using client::read_system_file;
using tarvio::Deadline;

constexpr int kManagerPatienceMs = 1000;

uint64_t free_bytes(const std::string& root) {
  struct statvfs space = {};
  if (statvfs((root + '/').c_str(), &space) != 0) return 0;
  return uint64_t{space.f_bavail} * space.f_frsize;
}

int64_t uptime() {
  timespec time = {};
  (void)clock_gettime(CLOCK_BOOTTIME, &time);
  return static_cast<int64_t>(time.tv_sec);
}

// What stands in the name of the file that is loaded, after ".so.": the library says it nowhere
// else.
std::string library_version() {
  Dl_info library = {};
  if (dladdr(reinterpret_cast<void*>(&tq_list_create), &library) == 0) return "";
  const std::unique_ptr<char, tarvio::Free> path(realpath(library.dli_fname, nullptr));
  const std::string name = path == nullptr ? library.dli_fname : path.get();
  constexpr std::string_view kBefore = ".so.";
  const size_t at = name.rfind(kBefore);
  return at == std::string::npos ? "" : name.substr(at + kBefore.size());
}

// Of the one that runs; empty for none. It answers at once, or is not waited for.
std::string manager_version() {
  const tarvio::Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (tq_socket_connect_unix_sock(fd.get(), TQ_COM_SOCKET_PATH) != 0) return "";
  const Deadline deadline = Deadline::after(kManagerPatienceMs);
  if (!tarvio::send_all(fd.get(), "version\n", deadline) || shutdown(fd.get(), SHUT_WR) != 0) {
    return "";
  }
  std::string reply;
  std::array<char, 256> room;
  while (tarvio::wait_for(fd.get(), POLLIN, deadline)) {
    const ssize_t count = tarvio::read_some(fd.get(), room);
    if (count <= 0) break;
    reply.append(room.data(), static_cast<size_t>(count));
  }
  // A code, and the version.
  std::string_view lines = reply;
  return tarvio::take_line(lines) == "0" ? std::string(tarvio::take_line(lines)) : "";
}

}  // namespace

Json root_facts(std::string_view command_line, std::string_view mounts) {
  Json facts = {{"kernel", Json()}, {"device", Json()}, {"type", Json()}, {"writable", Json()}};
  facts["kernel"] = client::or_null(client::root_in(command_line));
  for (const client::Mount& mount : client::mounts_in(mounts)) {
    if (mount.directory != "/") continue;
    facts["device"] = mount.device;
    facts["type"] = mount.type;
    facts["writable"] = mount.options == "rw" || mount.options.starts_with("rw,");
  }
  return facts;
}

Json system_facts(const Settings& settings, const std::string& packages_root,
                  const std::string& client_version) {
  const auto now = static_cast<int64_t>(std::time(nullptr));
  return {{"agent", TARVIO_VERSION},
          {"client", client::or_null(client_version)},
          {"library", client::or_null(library_version())},
          {"manager", client::or_null(manager_version())},
          {"tags", settings.tags},
          {"root",
           root_facts(read_system_file("/proc/cmdline"), read_system_file("/proc/self/mounts"))},
          {"free_bytes", free_bytes(packages_root)},
          {"uptime", uptime()},
          {"booted", now - uptime()},
          {"clock", now},
          {"unfinished", unfinished_packages(packages_root)}};
}

}  // namespace agent
