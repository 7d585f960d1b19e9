// Backup and restore of the flash memory.
#ifndef TARVIO_FLASH_HPP
#define TARVIO_FLASH_HPP

#include <cerrno>
#include <cstddef>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "tarvio/backup.h"
#include "tarvio/error.hpp"
#include "tarvio/list.h"

namespace tarvio {

// An area of the flash memory.
enum class Area { kBootloader, kBootsetting, kKernel, kRootfs, kWritable, kHibernation };

// The name of an area, as the C calls know it.
inline const char *name_of(Area area) noexcept {
  constexpr const char *kNames[] = {"bootloader", "bootsetting", "kernel",
                                    "rootfs",     "writable",    "hibernation"};
  return kNames[static_cast<std::size_t>(area)];
}

// A report of a step; valid until the observer returns.
using FlashEvent = tq_flash_event;

namespace detail {

struct FreeList {
  void operator()(tq_list_t *list) const noexcept { (void)tq_list_free(list, 0); }
};

struct Unobserved {
  std::error_code operator()(const FlashEvent &) const noexcept { return {}; }
};

// The observer of one call. It sees the failures that the result of the call hides (oddity 149).
template <class Observe>
class FlashWork {
 public:
  enum class AtFailure { kStop, kGoOn };

  FlashWork(Observe &observe, AtFailure at_failure) : observe_(observe), at_failure_(at_failure) {
    const tq_flash_observer observer = {report, this};
    tq_set_flash_observer(&observer);
  }
  ~FlashWork() { tq_set_flash_observer(nullptr); }
  FlashWork(const FlashWork &) = delete;
  FlashWork &operator=(const FlashWork &) = delete;

  std::error_code result(int code) const noexcept {
    return stopped_ ? stopped_ : failed_ ? failed_ : error_of(code);
  }

 private:
  static int report(const tq_flash_event *event, void *user) noexcept {
    FlashWork &work = *static_cast<FlashWork *>(user);
    const std::error_code failure = failure_of(*event);
    work.stopped_ = work.observe_(*event);
    if (work.stopped_) return work.stopped_.value();
    if (failure && !work.failed_) work.failed_ = failure;
    return work.at_failure_ == AtFailure::kStop ? failure.value() : 0;
  }
  // A backup does without the version of a system that has none.
  static std::error_code failure_of(const tq_flash_event &event) noexcept {
    if (event.kind != TQ_FLASH_END || event.step == TQ_FLASH_VERSION) return {};
    return error_of(event.step == TQ_FLASH_REBUILD && event.code == -1 ? errno : event.code);
  }

  Observe &observe_;
  AtFailure at_failure_;
  std::error_code stopped_;
  std::error_code failed_;
};

}  // namespace detail

// back_up and restore change the current directory of the process while they run and mount on /mnt/root:
// one of them at a time, while no other thread opens or installs anything by a relative path. Each step
// is reported to
//
//   std::error_code observe(const tarvio::FlashEvent& event);
//
// between the tools of the calling thread. What it returns ends the work as its result, unless that is no
// error. It must not throw, work on the flash or change the current directory. It replaces the observer
// that tq_set_flash_observer has set for the thread.

// Saves areas into an image package. It stops at the first step that fails, and returns its error.
//
// work_directory  gets the areas' files, which stay there.
// image           path of the package, relative to that; one that exists is added to. Empty for none.
template <class Observe = detail::Unobserved>
std::error_code back_up(const std::vector<Area> &areas, const std::string &work_directory,
                        const std::string &image, Observe observe = Observe()) {
  if (!detail::is_c_string(work_directory) || !detail::is_c_string(image)) return error_of(EINVAL);
  const std::unique_ptr<tq_list_t, detail::FreeList> names(tq_list_create());
  if (names == nullptr) return error_of(ENOMEM);
  for (const Area area : areas) {
    if (const int code = tq_list_add(names.get(), const_cast<char *>(name_of(area)))) {
      return error_of(code);
    }
  }
  using Work = detail::FlashWork<Observe>;
  Work work(observe, Work::AtFailure::kStop);
  return work.result(tq_lib_backup_areas(names.get(), work_directory.c_str(),
                                         image.empty() ? nullptr : image.c_str(), !image.empty()));
}

// Writes the areas of an image package to the flash memory. It goes on with the next area when a step
// fails, and returns the error of the first one.
template <class Observe = detail::Unobserved>
std::error_code restore(const std::string &image, const std::string &work_directory,
                        Observe observe = Observe()) {
  if (!detail::is_c_string(work_directory) || !detail::is_c_string(image)) return error_of(EINVAL);
  using Work = detail::FlashWork<Observe>;
  Work work(observe, Work::AtFailure::kGoOn);
  return work.result(tq_lib_backup_restore(image.c_str(), work_directory.c_str()));
}

}  // namespace tarvio

#endif
