#include "flash/backup_run.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "base/owners.h"
#include "flash/area_parts.h"
#include "flash/flash_job.h"
#include "flash/flash_space.h"
#include "flash/image_check.h"
#include "packages/ar_archive.h"
#include "process/failure.h"
#include "process/paths.h"
#include "process/required_tools.h"
#include "terminal/output.h"

namespace client {

namespace {

constexpr char kOutput[] = "out";  // in the work directory: the directory of the package

std::string name_of(const std::string& file) { return file.substr(file.rfind('/') + 1); }

// The hibernation area comes last: restoring the boot settings after it would erase its information
// block.
std::vector<const FlashArea*> areas_in_order(const std::vector<std::string>& names) {
  std::vector<const FlashArea*> areas;
  areas.reserve(names.size());
  for (const std::string& name : names) areas.push_back(find_area(name));
  std::stable_partition(areas.begin(), areas.end(),
                        [](const FlashArea* area) { return area->type != TQ_IMAGE_HIBERNATION; });
  return areas;
}

class BackupRun {
 public:
  BackupRun(const BackupRequest& request, SavedImage& image)
      : request_(request),
        image_(image),
        areas_(areas_in_order(request.areas)),
        target_directory_(directory_of(request.file)),
        work_place_(request.work_directory.empty() ? target_directory_ : request.work_directory),
        progress_(request.progress) {}

  void run() {
    require_tools({"ar", "tar", "gzip"});
    for (const FlashArea* const area : areas_) {
      require_tools({area->is_jffs2 ? "mkfs.jffs2" : "nanddump"});
    }
    check_target();
    const FlashLock lock;
    for (const std::string& place : {work_place_, target_directory_}) {
      WorkDirectory::remove_left_over(work_directory_in(place));
    }
    check_room();
    const WorkDirectory directory(work_directory_in(work_place_));
    try {
      run_in(directory, lock);
    } catch (const Interrupted&) {
      progress_.give_up();
      complain("interrupted: nothing saved; '" + request_.file + "' is unchanged");
      throw;
    }
  }

 private:
  void check_target() const {
    struct stat status = {};
    if (lstat(request_.file.c_str(), &status) != 0) return;
    if (S_ISDIR(status.st_mode)) throw Failure(EISDIR, "is a directory");
    if (request_.overwrite) return;
    throw Failure(EEXIST, "already exists; use --overwrite to replace it");
  }

  void check_room() const {
    const BackupBytes bytes = bytes_of_backup(areas_);
    check_space({work_place_, bytes.work}, {target_directory_, bytes.target});
  }

  void run_in(const WorkDirectory& directory, const FlashLock& lock) {
    // The package grows beside its place, where it can be renamed. The library, which hands paths
    // to the shell, reaches it through the work directory.
    const WorkDirectory target(work_directory_in(target_directory_));
    const tarvio::CString path(realpath(target.path().c_str(), nullptr));
    if (path == nullptr || symlink(path.get(), (directory / kOutput).c_str()) != 0) {
      throw Failure::of_system("cannot write in '" + work_place_ + "'");
    }
    const FlashJobs jobs(directory, lock, progress_, request_.timeout_seconds);
    const std::string name = name_of(request_.file);
    BackupTracker(areas_, jobs, image_.areas).run(std::string(kOutput) + "/" + name);
    check(ArchiveFile(target / name), jobs);
    image_.size_bytes = put_in_place(target / name, request_.file);
  }

  void check(const ArchiveFile& package, const FlashJobs& jobs) {
    (void)package.find("control.tar.gz");
    for (SavedArea& saved : image_.areas) {
      const FlashArea& area = *find_area(saved.name);
      try {
        saved.size_bytes = check_saved(package, area);
        if (request_.verify && !area.is_jffs2) verify_area(package, saved, jobs);
      } catch (const Failure& failure) {
        saved.failure = failure.what();
        throw Failure(failure.code(), saved.name + ": " + failure.what(), failure.status());
      }
    }
  }

  void verify_area(const ArchiveFile& package, SavedArea& saved, const FlashJobs& jobs) {
    progress_.begin(saved.name);
    progress_.end("verified", verify(package, *find_area(saved.name), jobs));
    saved.is_verified = true;
  }

  const BackupRequest& request_;
  SavedImage& image_;
  const std::vector<const FlashArea*> areas_;
  const std::string target_directory_;
  const std::string work_place_;
  Progress progress_;
};

}  // namespace

void back_up(const BackupRequest& request, SavedImage& image) { BackupRun(request, image).run(); }

}  // namespace client
