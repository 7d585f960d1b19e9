#include "backup_command.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "archive_file.h"
#include "area_saving.h"
#include "failure.h"
#include "flash_areas.h"
#include "flash_job.h"
#include "flash_space.h"
#include "image_check.h"
#include "json.h"
#include "output.h"
#include "text.h"
#include "util/handles.h"

namespace client {

namespace {

constexpr char kOutput[] = "out";  // in the work folder: the folder of the package

std::string name_of(const std::string& file) { return file.substr(file.rfind('/') + 1); }

void sync(const std::string& path, int flags) {
  const tarvio::Fd file(open(path.c_str(), flags | O_CLOEXEC));
  if (!file.valid() || fsync(file.get()) != 0) {
    throw Failure::of_system("cannot write '" + path + "'");
  }
}

// The hibernation area comes last: whoever restores the boot settings behind it erases its
// information block.
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
  BackupRun(const Options& options, SavedImage& image)
      : options_(options),
        image_(image),
        areas_(areas_in_order(options.operands)),
        target_folder_(folder_of(options.output)),
        work_place_(options.work_folder.empty() ? target_folder_ : options.work_folder),
        progress_(progress_kind(options)) {}

  void run() {
    check_target();
    const FlashLock lock;
    for (const std::string& place : {work_place_, target_folder_}) {
      WorkFolder::remove_left_over(work_folder_in(place));
    }
    check_room();
    const WorkFolder folder(work_folder_in(work_place_));
    try {
      run_in(folder, lock);
    } catch (const Interrupted&) {
      progress_.give_up();
      complain("interrupted: nothing is saved, and '" + options_.output + "' is as it was before");
      throw;
    }
  }

 private:
  void check_target() const {
    struct stat status = {};
    if (lstat(options_.output.c_str(), &status) != 0) return;
    if (S_ISDIR(status.st_mode)) throw Failure(EISDIR, "it is a folder");
    if (options_.overwrite) return;
    throw Failure(EEXIST, "it is there already: --overwrite replaces it");
  }

  // One area's file at a time lies in the work folder. The package is there twice while ar adds to
  // it.
  void check_room() const {
    uint64_t sum = 0;
    uint64_t largest = 0;
    for (const FlashArea* const area : areas_) {
      uint64_t bytes = 0;
      for (const AreaPart& part : parts_of(*area)) bytes += part.backup_bytes;
      sum += bytes;
      largest = std::max(largest, bytes);
    }
    check_space({work_place_, largest}, {target_folder_, 2 * sum});
  }

  void run_in(const WorkFolder& folder, const FlashLock& lock) {
    // The package grows beside its place, where it can be renamed. The library, which hands paths
    // to the shell, sees it by way of the work folder.
    const WorkFolder target(work_folder_in(target_folder_));
    const tarvio::CString path(realpath(target.path().c_str(), nullptr));
    if (path == nullptr || symlink(path.get(), (folder / kOutput).c_str()) != 0) {
      throw Failure::of_system("cannot write in '" + work_place_ + "'");
    }
    const FlashJobs jobs(folder, lock, progress_, options_.timeout_seconds);
    const std::string name = name_of(options_.output);
    AreaSaving(areas_, jobs, image_.areas).run(std::string(kOutput) + "/" + name);
    check(ArchiveFile(target / name), jobs);
    put_in_place(target / name);
  }

  void check(const ArchiveFile& package, const FlashJobs& jobs) {
    (void)package.find("control.tar.gz");
    for (SavedArea& saved : image_.areas) {
      const FlashArea& area = *find_area(saved.name);
      try {
        saved.size_bytes = check_saved(package, area);
        if (options_.verify && !area.is_jffs2) verify_area(package, area, jobs);
      } catch (const Failure& failure) {
        saved.failure = failure.what();
        throw Failure(failure.code(), saved.name + ": " + failure.what(), failure.status());
      }
    }
  }

  void verify_area(const ArchiveFile& package, const FlashArea& area, const FlashJobs& jobs) {
    progress_.begin(area.name);
    progress_.end("verified", verify(package, area, jobs));
  }

  // A reader sees the old file or the whole new one, even when the power fails.
  void put_in_place(const std::string& package) {
    sync(package, O_RDONLY);
    image_.size_bytes = size_of_file(package);
    if (rename(package.c_str(), options_.output.c_str()) != 0) {
      throw Failure::of_system("cannot write '" + options_.output + "'");
    }
    sync(target_folder_, O_RDONLY | O_DIRECTORY);
  }

  const Options& options_;
  SavedImage& image_;
  const std::vector<const FlashArea*> areas_;
  const std::string target_folder_;
  const std::string work_place_;
  Progress progress_;
};

std::string line_of(const SavedImage& image) {
  std::string names;
  for (const SavedArea& area : image.areas) names += (names.empty() ? "" : ", ") + area.name;
  return printable("saved " + names + " in " + image.outcome.operand + ", " +
                   size_words(image.size_bytes)) +
         '\n';
}

}  // namespace

int run_backup(const Options& options) {
  SavedImage image;
  image.outcome = attempt("write", options.output, [&] { BackupRun(options, image).run(); });
  bool is_written = true;
  if (options.json) {
    is_written = print(saved_json(image));
  } else if (image.outcome.code == 0) {
    is_written = print(line_of(image));
  }
  return is_written ? image.outcome.status : kFailed;
}

}  // namespace client
