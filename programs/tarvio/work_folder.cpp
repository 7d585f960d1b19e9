#include "work_folder.h"

#include <dirent.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "failure.h"
#include "util/handles.h"

namespace client {

namespace {

constexpr int kOpenFolders = 16;
constexpr mode_t kOwnerOnly = 0700;

std::string temporary_beginning() {
  const char* const folder = getenv("TMPDIR");
  return std::string(folder == nullptr || *folder == '\0' ? "/tmp" : folder) + "/tarvio.";
}

// Returns 1 for a folder that could not be listed before, which stops the walk.
int let_list(const char* path, const struct stat* /*status*/, int kind, struct FTW* /*place*/) {
  if (kind != FTW_D && kind != FTW_DNR) return 0;
  const bool is_changed = chmod(path, kOwnerOnly) == 0;
  return kind == FTW_DNR && is_changed ? 1 : 0;
}

int remove_entry(const char* path, const struct stat* /*status*/, int /*kind*/,
                 struct FTW* /*place*/) {
  (void)remove(path);  // the rest is worth removing all the same
  return 0;
}

// An archive may bring folders that their owner may not enter.
void remove_tree(const char* path) {
  while (nftw(path, let_list, kOpenFolders, FTW_PHYS) == 1) {
  }
  (void)nftw(path, remove_entry, kOpenFolders, FTW_PHYS | FTW_DEPTH);
}

bool is_own_folder(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

// Tools run in the folder itself, where a relative path would lead elsewhere.
std::string absolute(const std::string& path) {
  if (path.starts_with('/')) return path;
  const tarvio::CString current(getcwd(nullptr, 0));
  if (current == nullptr) throw Failure::of_system("cannot tell the current folder");
  return std::string(current.get()) + "/" + path;
}

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { (void)closedir(folder); }
};

}  // namespace

WorkFolder::WorkFolder() : WorkFolder(temporary_beginning()) {}

WorkFolder::WorkFolder(const std::string& beginning) : path_(absolute(beginning) + "XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) {
    throw Failure::of_system("cannot make a work folder '" + beginning + "XXXXXX'");
  }
}

void WorkFolder::remove_left_over(const std::string& beginning) {
  const std::string parent = beginning.substr(0, beginning.rfind('/') + 1);
  const std::unique_ptr<DIR, CloseFolder> folder(opendir(parent.c_str()));
  if (folder == nullptr) return;
  while (const dirent* const entry = readdir(folder.get())) {
    const std::string path = parent + entry->d_name;
    if (path.starts_with(beginning) && is_own_folder(path)) remove_tree(path.c_str());
  }
}

WorkFolder::~WorkFolder() { remove_tree(path_.c_str()); }

}  // namespace client
