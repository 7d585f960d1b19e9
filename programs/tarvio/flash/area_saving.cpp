#include "flash/area_saving.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "base/owners.h"
#include "tarvio/backup.h"
#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace client {

namespace {

constexpr int kNotMounted = -1;  // the library's result for a file system

int call_library(const std::vector<const FlashArea*>& areas, const std::string& package) {
  const tarvio::StringList list(tq_list_create());
  if (list == nullptr) return ENOMEM;
  for (const FlashArea* const area : areas) {
    char* const name = strdup(area->name);
    if (name == nullptr || tq_list_add(list.get(), name) != 0) return ENOMEM;
  }
  return tq_lib_backup_areas(list.get(), ".", package.c_str(), 1);
}

// What the dump of each raw part is to hold. Of fewer bytes than are kept, the library makes so
// many by zeros: that is right only where bad blocks have taken the room.
std::vector<ExpectedDump> expected_of(const FlashArea& area, const FlashJobs& jobs) {
  std::vector<ExpectedDump> expected;
  if (area.is_jffs2) return expected;
  for (const AreaPart& part : parts_of(area)) {
    const uint64_t good = jobs.good_bytes(part.device);
    const uint64_t bad = size_of_device(part.device).bytes - good;
    expected.push_back({part.start != 0 ? part.backup_bytes : std::min(part.backup_bytes, good),
                        part.start + part.backup_bytes + bad});
  }
  return expected;
}

}  // namespace

AreaSaving::AreaSaving(const std::vector<const FlashArea*>& areas, const FlashJobs& jobs,
                       std::vector<SavedArea>& saved)
    : areas_(areas), jobs_(jobs), saved_(saved) {
  for (const FlashArea* const area : areas_) expected_.push_back(expected_of(*area, jobs_));
}

void AreaSaving::run(const std::string& package) {
  try {
    jobs_.run(
        "the backup", [&] { return call_library(areas_, package); },
        [this](const FlashEvent& event) { take(event); }, [this] { tick(); });
  } catch (const Failure& failure) {
    fail_for_area(failure);
  }
  if (!saved_.empty()) finish();
}

uint64_t AreaSaving::bytes_of(const std::string& file) const {
  for (const AreaPart& part : parts_of(area())) {
    if (part.file == file) return part.backup_bytes;
  }
  return 0;
}

void AreaSaving::take(const FlashEvent& event) {
  if (event.step == FlashStep::kSaving) return begin();
  if (saved_.empty()) return;  // the system's version is read first
  switch (event.step) {
    case FlashStep::kDumping:
      file_ = event.file;
      return jobs_.progress().step("reading", bytes_of(file_));
    case FlashStep::kUnreadable:
      return check_place(static_cast<uint64_t>(event.number));
    case FlashStep::kDumped: {
      const auto code = static_cast<int>(event.number);
      if (code != 0) throw Failure(code, result_words(code));
      return;
    }
    case FlashStep::kDumpBytes:
      return check_dump(static_cast<uint64_t>(event.number));
    case FlashStep::kPacking:
      file_.clear();
      return jobs_.progress().step("packing", 0);
    default:
      return;
  }
}

void AreaSaving::begin() {
  if (!saved_.empty()) finish();
  dumps_ = 0;
  saved_.push_back({areas_.at(saved_.size())->name, 0, ""});
  jobs_.progress().begin(area().name);
}

void AreaSaving::finish() { jobs_.progress().end("read and packed", saved_.back().size_bytes); }

void AreaSaving::check_dump(uint64_t bytes) {
  saved_.back().size_bytes += std::min(bytes, bytes_of(file_));
  if (area().is_jffs2) return;
  const uint64_t least = expected_.at(saved_.size() - 1).at(dumps_++).bytes;
  if (bytes >= least) return;
  throw Failure(EIO, "only " + size_words(bytes) + " of " + size_words(least) + " were read into " +
                         file_.substr(2));
}

void AreaSaving::check_place(uint64_t place) const {
  if (area().is_jffs2 || place >= expected_.at(saved_.size() - 1).at(dumps_).end) return;
  std::array<char, 24> hex = {};
  (void)snprintf(hex.data(), hex.size(), "0x%" PRIx64, place);
  throw Failure(
      EIO, std::string(parts_of(area()).at(dumps_).device) + " cannot be read at " + hex.data());
}

void AreaSaving::tick() {
  if (!file_.empty()) jobs_.progress().at(size_of_file(jobs_.directory() / file_));
}

void AreaSaving::fail_for_area(const Failure& failure) {
  jobs_.progress().give_up();
  if (saved_.empty()) throw Failure(failure.code(), failure.what(), failure.status());
  const bool is_mount = failure.code() == kNotMounted;
  const std::string what =
      is_mount ? std::string(area().source) + " could not be mounted" : failure.what();
  saved_.back().failure = what;
  throw Failure(is_mount ? EIO : failure.code(), std::string(area().name) + ": " + what,
                failure.status());
}

}  // namespace client
