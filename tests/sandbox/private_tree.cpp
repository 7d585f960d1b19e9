#include "private_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <functional>
#include <string_view>

#include "report.h"

namespace sandbox {
namespace {

using Names = std::vector<std::string>;

struct PrivateDirectory {
  const char* path;
  Names children;
};

bool contains(const Names& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Whether `path` is `directory` itself or lies below it.
bool lies_in(std::string_view path, std::string_view directory) {
  return path.starts_with(directory) &&
         (path.size() == directory.size() || path[directory.size()] == '/');
}

void make_directory(const std::string& path, mode_t mode = 0755) {
  if (::mkdir(path.c_str(), mode) != 0 && errno != EEXIST) die("cannot make " + path);
}

void make_directories(const std::string& path) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1))
    make_directory(path.substr(0, slash));
  make_directory(path);
}

void make_file(const std::string& path, std::string_view text = {}) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0 || ::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
    die("cannot write " + path);
  ::close(fd);
}

// A user namespace refuses to take a mount apart from those below it, so everything below comes
// along.
void bind_mount(const std::string& source, const std::string& target) {
  if (::mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
    die("cannot bind " + target);
}

// Shows the current directory's entry `name` again as `path`.
void show_again(const dirent& entry, const std::string& path) {
  unsigned char type = entry.d_type;
  struct stat info = {};
  if (type == DT_UNKNOWN && ::lstat(entry.d_name, &info) == 0) type = IFTODT(info.st_mode);
  if (type == DT_LNK) {
    char target[PATH_MAX] = {};
    if (::readlink(entry.d_name, target, sizeof target - 1) < 0 || ::symlink(target, path.c_str()))
      die("cannot link " + path);
    return;
  }
  if (type == DT_DIR) {
    make_directory(path);
  } else {
    make_file(path);
  }
  bind_mount(entry.d_name, path);
}

// Replaces `directory` by a private one that shows those of its entries that `wanted` names.
void replace(const std::string& directory, const std::function<bool(const std::string&)>& wanted) {
  // The current directory stays the covered one, so its entries are still at hand under their bare
  // names.
  if (::chdir(directory.c_str()) != 0) die("cannot enter " + directory);
  if (::mount("sandbox", directory.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0)
    die("cannot mount a tmpfs on " + directory, kRemedy);
  DIR* entries = ::opendir(".");
  if (entries == nullptr) die("cannot list " + directory);
  while (const dirent* entry = ::readdir(entries)) {
    const std::string name = entry->d_name;
    if (name != "." && name != ".." && wanted(name)) show_again(*entry, directory + "/" + name);
  }
  ::closedir(entries);
}

// Replaces an existing directory by an empty one, but for entries that hold a path to keep.
void clear(const std::string& directory, const Names& children, const Names& keep) {
  replace(directory, [&](const std::string& name) {
    const std::string path = directory + "/" + name;
    if (std::none_of(keep.begin(), keep.end(), [&](auto& kept) { return lies_in(kept, path); }))
      return false;
    if (contains(children, name)) {
      errno = EBUSY;
      die("the project's tree or the current directory lies in " + path +
          ", which must be private");
    }
    return true;
  });
}

// A host without a directory gets it without a change: the parent becomes a private one that shows
// all of its entries, with room for one more.
void make_private(const PrivateDirectory& directory, const Names& keep) {
  std::filesystem::path existing = directory.path;
  while (!std::filesystem::is_directory(existing)) existing = existing.parent_path();
  const std::string real = std::filesystem::canonical(existing);
  if (existing == directory.path) {
    clear(real, directory.children, keep);
  } else {
    replace(real, [](const std::string&) { return true; });
  }
  make_directories(directory.path);
  for (const std::string& child : directory.children)
    make_directory(directory.path + ("/" + child));
}

// No /dev/log, so that a test can put its own there.
void make_private_devices(const Names& keep) {
  static const Names devices = {"fd",    "full",   "null",   "ptmx", "pts",     "random",
                                "stdin", "stdout", "stderr", "tty",  "urandom", "zero"};
  replace("/dev", [&](const std::string& name) {
    const auto holds = [&](auto& kept) { return lies_in(kept, "/dev/" + name); };
    return contains(devices, name) || std::any_of(keep.begin(), keep.end(), holds);
  });
  make_directory("/dev/shm");
  ::chmod("/dev/shm", 01777);
}

}  // namespace

void make_private_tree(const std::vector<std::string>& keep) {
  if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    die("cannot make the mounts private", kRemedy);
  ::umask(022);
  const PrivateDirectory directories[] = {
      {"/usr/lib/opkg", {"info"}}, {"/usr/local/share/tarvio", {}},
      {"/mnt", {"root"}},          {"/opt", {}},
      {"/etc/tarvio", {}},         {"/var/log", {}},
      {"/run", {"tmp"}},
  };
  for (const PrivateDirectory& directory : directories) make_private(directory, keep);
  make_private_devices(keep);
  make_file(kCommandLineFile, "console=ttyAMA0 root=/dev/mtdblock4 rw\n");
  bind_mount(kCommandLineFile, "/proc/cmdline");
}

bool mount_own_proc() {
  // The mount's own propagation does not matter yet, but it must not reach the host's /proc.
  if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    die("cannot make the mounts private", kRemedy);
  return ::mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0;
}

}  // namespace sandbox
