#include "process/work_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "base/owners.h"
#include "process/failure.h"

namespace client {

namespace {

constexpr int kMaxOpenDirectories = 16;
constexpr int kMaxAttempts = 3;
constexpr mode_t kOwnerOnly = 0700;

std::string temporary_beginning() {
  const char* const directory = getenv("TMPDIR");
  return std::string(directory == nullptr || *directory == '\0' ? "/tmp" : directory) + "/tarvio.";
}

// Returns 1 for a directory that could not be listed before, which stops the walk.
int make_listable(const char* path, const struct stat* /*status*/, int kind,
                  struct FTW* /*place*/) {
  if (kind != FTW_D && kind != FTW_DNR) return 0;
  const bool is_changed = chmod(path, kOwnerOnly) == 0;
  return kind == FTW_DNR && is_changed ? 1 : 0;
}

int remove_entry(const char* path, const struct stat* /*status*/, int /*kind*/,
                 struct FTW* /*place*/) {
  (void)remove(path);  // a failure leaves the rest worth removing
  return 0;
}

// An archive may bring directories that their owner may not enter.
bool remove_contents(const char* path) {
  while (nftw(path, make_listable, kMaxOpenDirectories, FTW_PHYS) == 1) {
  }
  return nftw(path, remove_entry, kMaxOpenDirectories, FTW_PHYS | FTW_DEPTH) == 0;
}

// Where others can rename it, they may put something else in its place at any time. So it is opened
// once, and what is in it, where others cannot enter, is reached through the descriptor.
bool try_to_remove_tree(const char* path) {
  const tarvio::Fd tree(open(path, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status = {};
  if (!tree.valid() || fstat(tree.get(), &status) != 0 || status.st_uid != geteuid()) return false;
  char opened[32];
  (void)snprintf(opened, sizeof opened, "/proc/self/fd/%d", tree.get());
  (void)chmod(opened, kOwnerOnly);
  (void)snprintf(opened, sizeof opened, "/proc/self/fd/%d/.", tree.get());
  return remove_contents(opened) && remove(path) == 0;
}

// An attempt that stops, because of memory for instance, is worth another one.
void remove_tree(const char* path) {
  for (int attempts = 0; attempts < kMaxAttempts && !try_to_remove_tree(path); ++attempts) {
  }
}

// Tools run in the directory itself, where a relative path would lead elsewhere; and links that
// lead to it may be changed. Empty when there is no such place.
std::string real_template(const std::string& beginning) {
  const size_t name = beginning.rfind('/') + 1;
  const std::string parent = beginning.substr(0, name);
  const tarvio::CString real(realpath(parent.empty() ? "." : parent.c_str(), nullptr));
  return real == nullptr ? "" : std::string(real.get()) + "/" + beginning.substr(name) + "XXXXXX";
}

}  // namespace

WorkDirectory::WorkDirectory() : WorkDirectory(temporary_beginning()) {}

WorkDirectory::WorkDirectory(const std::string& beginning) : path_(real_template(beginning)) {
  if (path_.empty() || mkdtemp(path_.data()) == nullptr) {
    throw Failure::of_system("cannot create a work directory '" + beginning + "XXXXXX'");
  }
}

void WorkDirectory::remove_left_over(const std::string& beginning) {
  const std::string parent = beginning.substr(0, beginning.rfind('/') + 1);
  const tarvio::Directory directory(opendir(parent.c_str()));
  if (directory == nullptr) return;
  while (const dirent* const entry = readdir(directory.get())) {
    const std::string path = parent + entry->d_name;
    if (path.starts_with(beginning)) remove_tree(path.c_str());
  }
}

void WorkDirectory::check_space_left(const std::string& cause) const {
  struct statvfs space = {};
  if (statvfs(path_.c_str(), &space) != 0) return;
  // Some file systems count no files, and a root in memory no blocks either.
  const bool has_blocks = space.f_blocks == 0 || space.f_bavail != 0;
  const bool has_files = space.f_files == 0 || space.f_favail != 0;
  if (has_blocks && has_files) return;
  throw Failure(ENOSPC, "no space left in '" + path_.substr(0, path_.rfind('/')) +
                            "' for intermediate files" + (cause.empty() ? "" : ": " + cause));
}

WorkDirectory::~WorkDirectory() { remove_tree(path_.c_str()); }

}  // namespace client
