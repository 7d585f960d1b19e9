#include "flash/restore_run.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "flash/area_parts.h"
#include "flash/flash_guard.h"
#include "flash/flash_job.h"
#include "flash/flash_space.h"
#include "flash/image_check.h"
#include "packages/ar_archive.h"
#include "packages/installed.h"
#include "packages/package_file.h"
#include "process/failure.h"
#include "process/last_words.h"
#include "process/paths.h"
#include "process/required_tools.h"
#include "signatures/package_guard.h"
#include "terminal/output.h"
#include "terminal/question.h"
#include "terminal/text_table.h"
#include "terminal/words.h"

namespace client {

namespace {

using Areas = std::vector<const FlashArea*>;

// The areas that a package names. The library takes the first area whose name occurs in a line, and
// the boot loader when none does: a line must be the name of just one.
Areas areas_of(const PackageFile& package) {
  if (!package.kind || package.kind->category != kImageCategory) {
    throw Failure(EINVAL, "not an image package");
  }
  Areas areas;
  for (const std::string& target : package.kind->targets) {
    const FlashArea* const area = find_area(target);
    if (area == nullptr) throw Failure(EINVAL, "unknown flash area '" + target + "'");
    if (std::find(areas.begin(), areas.end(), area) != areas.end()) {
      throw Failure(EINVAL, "lists flash area '" + target + "' twice");
    }
    areas.push_back(area);
  }
  if (areas.empty()) throw Failure(EINVAL, "lists no flash area");
  return areas;
}

// The boot settings' device holds the information block of the hibernation area, which goes with
// it.
bool loses_hibernation(const Areas& areas) {
  const auto is_of = [](int type) {
    return [type](const FlashArea* area) { return area->type == type; };
  };
  const auto first = std::find_if(areas.begin(), areas.end(), is_of(TQ_IMAGE_HIBERNATION));
  return std::find_if(first, areas.end(), is_of(TQ_IMAGE_BOOTSETTING)) != areas.end();
}

void require_flash_tools(const Areas& areas) {
  require_tools({"nanddump", "nandwrite"});
  for (const FlashArea* const area : areas) {
    for (const AreaPart& part : parts_of(*area)) {
      require_tools({part.start == 0 ? "flash_eraseall" : "flash_erase"});
    }
  }
}

void check_harmless(const Areas& areas) {
  for (const FlashArea* const area : areas) {
    const std::string use = use_of(*area);
    if (use.empty()) continue;
    throw Failure(EBUSY, std::string(area->name) + ": " + use + "; use --force to write anyway");
  }
  if (loses_hibernation(areas)) {
    throw Failure(
        EINVAL,
        "lists bootsetting after hibernation and would erase its information block; use --force "
        "to write anyway");
  }
}

std::string table_of(const std::vector<RestoredArea>& restored) {
  std::vector<Row> rows = {header_of({"NAME", "DEVICE", "SIZE"})};
  for (const RestoredArea& area : restored) {
    rows.push_back({{area.name}, {find_area(area.name)->target}, {size_words(area.size_bytes)}});
  }
  return render_table(rows, false);
}

// What is in the flash memory when the work stops in the middle.
std::string state_of(const std::vector<RestoredArea>& restored) {
  const std::string unfinished = names_of(restored, AreaState::kUnfinished);
  const std::string written = names_of(restored, AreaState::kWritten);
  const std::string untouched = names_of(restored, AreaState::kUntouched);
  if (unfinished.empty() && written.empty()) return "nothing was written";
  std::string state;
  for (const auto& [what, names] : {std::pair{"erased or half written: ", unfinished},
                                    {"written: ", written},
                                    {"unchanged: ", untouched}}) {
    if (!names.empty()) state += (state.empty() ? "" : "; ") + (what + names);
  }
  return state;
}

class RestoreRun {
 public:
  RestoreRun(const RestoreRequest& request, std::vector<RestoredArea>& restored)
      : request_(request),
        file_(request.file),
        restored_(restored),
        work_place_(request.work_directory.empty() ? directory_of(file_) : request.work_directory),
        progress_(request.progress) {}

  void run() {
    (void)readable_file(file_);
    const FlashLock lock;
    WorkDirectory::remove_left_over(work_directory_in(work_place_));
    const WorkDirectory directory(work_directory_in(work_place_));
    try {
      run_in(directory, lock);
    } catch (const Interrupted&) {
      progress_.give_up();
      complain("interrupted: " + state_of(restored_));
      throw;
    } catch (const Failure& failure) {
      fail_with_state(failure);
    } catch (const std::bad_alloc& error) {
      fail_with_state(Failure(ENOMEM, cause_of(error)));
    }
  }

 private:
  [[noreturn]] void fail_with_state(const Failure& failure) {
    progress_.give_up();
    throw Failure(failure.code(), std::string(failure.what()) + "; " + state_of(restored_),
                  failure.status());
  }

  void run_in(const WorkDirectory& directory, const FlashLock& lock) {
    const PackageGuard guard(directory, file_, Use::kRestore, Demand::kPolicy,
                             "name another directory with --workdir", request_.timeout_seconds,
                             progress_);
    const ArchiveFile package(guard.path());
    areas_ = areas_of(guarded(guard, directory));
    require_flash_tools(areas_);
    const FlashJobs jobs(directory, lock, progress_, request_.timeout_seconds);
    for (const FlashArea* const area : areas_) restored_.push_back({.name = area->name});
    check(package, jobs);
    if (!request_.force) check_harmless(areas_);
    check_space({work_place_, room()}, {work_place_, 0});
    confirm(directory.signals());
    unpack(package, directory);
    RestoreTracker(jobs, restored_).run();
    if (request_.verify) verify_areas(package, jobs);
    judge();
  }

  [[nodiscard]] PackageFile guarded(const PackageGuard& guard,
                                    const WorkDirectory& directory) const {
    PackageFile package = read_package_file(directory, guard.path(), request_.timeout_seconds);
    guard.check_identity(package);
    if (!guard.allows_downgrade()) guard.check_version(package, system_version());
    return package;
  }

  void check(const ArchiveFile& package, const FlashJobs& jobs) {
    for (RestoredArea& area : restored_) {
      try {
        area.size_bytes = check_to_restore(package, *find_area(area.name), jobs);
      } catch (const Failure& failure) {
        throw Failure(failure.code(), area.name + ": " + failure.what(), failure.status());
      }
    }
  }

  // The areas' files are there all at once before the first one is written, and gone before the
  // first dump.
  [[nodiscard]] uint64_t room() const {
    uint64_t files = 0;
    uint64_t dump = 0;
    for (const RestoredArea& area : restored_) files += area.size_bytes;
    for (const FlashArea* const area : areas_) {
      for (const AreaPart& part : parts_of(*area)) {
        dump = std::max(dump, size_of_device(part.device).bytes);
      }
    }
    return std::max(files, request_.verify ? dump : 0);
  }

  void confirm(const SignalHold& signals) const {
    if (request_.yes) return;
    if (!can_ask()) {
      throw Failure(EPERM, "cannot ask for confirmation without a terminal; use --yes");
    }
    const std::string question =
        table_of(restored_) + "These areas will be erased and rewritten. Continue? [y/N] ";
    if (!ask(question, signals)) throw Failure(ECANCELED, "cancelled");
  }

  // All before the first area is erased, so that nothing can be missing after that.
  void unpack(const ArchiveFile& package, const WorkDirectory& directory) {
    uint64_t bytes = 0;
    std::vector<const char*> members;
    for (const FlashArea* const area : areas_) {
      for (const AreaPart& part : parts_of(*area)) members.push_back(member_of(part));
    }
    for (const char* const member : members) bytes += package.find(member).bytes;
    const auto work = [&] {
      for (const char* const member : members) {
        package.unpack(package.find(member), directory / member);
      }
      return std::string();
    };
    const auto show = [&] {
      uint64_t done = 0;
      for (const char* const member : members) done += size_of_file(directory / member);
      progress_.at(done);
    };
    progress_.begin(file_);
    progress_.step_if_long("unpacking", bytes);
    (void)run_job(directory, Rights::of_caller(), "unpacking", work, request_.timeout_seconds,
                  {show, progress_.tick_ms()});
    progress_.clear();
  }

  void verify_areas(const ArchiveFile& package, const FlashJobs& jobs) {
    for (RestoredArea& area : restored_) {
      if (area.state != AreaState::kWritten) continue;
      progress_.begin(area.name);
      try {
        progress_.end("verified", verify(package, *find_area(area.name), jobs));
        area.is_verified = true;
      } catch (const Failure& failure) {
        area.failure = failure.what();
        area.state = AreaState::kUnfinished;
      }
    }
  }

  void judge() {
    progress_.give_up();
    std::string failed;
    for (const RestoredArea& area : restored_) {
      if (area.state == AreaState::kWritten) continue;
      complain(area.name + ": " + (area.failure.empty() ? "not written" : area.failure));
      failed += (failed.empty() ? "" : ", ") + area.name;
    }
    if (!failed.empty()) throw Failure(EIO, failed + " failed");
  }

  const RestoreRequest& request_;
  const std::string file_;
  std::vector<RestoredArea>& restored_;
  const std::string work_place_;
  Progress progress_;
  Areas areas_;
};

}  // namespace

void restore(const RestoreRequest& request, std::vector<RestoredArea>& restored) {
  RestoreRun(request, restored).run();
}

std::string names_of(const std::vector<RestoredArea>& restored, AreaState state) {
  std::string names;
  for (const RestoredArea& area : restored) {
    if (area.state == state) names += (names.empty() ? "" : ", ") + area.name;
  }
  return names;
}

}  // namespace client
