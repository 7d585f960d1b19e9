#include "flash/backup_tracker.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdio>

#include "base/list_appender.h"
#include "process/paths.h"
#include "terminal/words.h"

namespace client {

namespace {

int call_library(const std::vector<const FlashArea*>& areas, const std::string& package) {
  const tarvio::StringList list(tq_list_create());
  if (list == nullptr) return ENOMEM;
  tarvio::ListAppender names(*list);
  for (const FlashArea* const area : areas) {
    if (!names.append_copy(area->name)) return ENOMEM;
  }
  return tq_lib_backup_areas(list.get(), ".", package.c_str(), 1);
}

// What the dump of each raw part must hold. The library pads a shorter one with zeros: that is
// right only where bad blocks have taken the room.
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

// The tqcontrol of a package with these areas; two blanks in it are the library's (oddity 146).
std::string targets_of(const std::vector<const FlashArea*>& areas) {
  std::string text = "TqPackageCategory:  Image\nTqPackageSubCategory: Image_Other\n";
  for (const FlashArea* const area : areas) text += area->target_line;
  return text;
}

// What the backup keeps of a part, or of a file system at most.
uint64_t kept_bytes(const FlashArea& area, std::string_view file) {
  for (const AreaPart& part : parts_of(area)) {
    if (part.file == file) return part.backup_bytes;
  }
  return 0;
}

}  // namespace

BackupTracker::BackupTracker(const std::vector<const FlashArea*>& areas, const FlashJobs& jobs,
                             std::vector<SavedArea>& saved)
    : areas_(areas), jobs_(jobs), saved_(saved) {
  for (const FlashArea* const area : areas_) expected_.push_back(expected_of(*area, jobs_));
}

void BackupTracker::run(const std::string& package) {
  try {
    jobs_.run(
        "the backup", [&] { return call_library(areas_, package); },
        [this](const FlashRecord& record) { on_record(record); }, [this] { tick(); });
  } catch (const Failure& failure) {
    fail_for_area(failure);
  }
}

void BackupTracker::on_record(const FlashRecord& record) {
  if (record.step == TQ_FLASH_CONTROLS) return on_controls(record);
  if (record.area[0] == '\0') return;  // the version and the packing of the control files
  if (saved_.empty() || saved_.back().name != record.area.data()) begin_area();
  if (record.kind == TQ_FLASH_BEGIN) return on_begin(record);
  if (record.kind == TQ_FLASH_END) return on_end(record);
  if (record.step == TQ_FLASH_DUMP) check_line(record);
}

// They are written before the areas and packed after them. The library goes on without those that
// it could not write.
void BackupTracker::on_controls(const FlashRecord& record) {
  if (record.kind == TQ_FLASH_BEGIN && is_in_area_) finish_area();
  if (record.code != 0) throw failure_of(record);
  const bool is_empty = record.kind == TQ_FLASH_END && record.bytes == 0;
  const bool is_to_be_packed = record.kind == TQ_FLASH_BEGIN && !saved_.empty();
  if (is_empty || (is_to_be_packed && record.line.data() != targets_of(areas_))) {
    throw Failure(EIO, "writing the control files failed: they are incomplete");
  }
}

void BackupTracker::on_begin(const FlashRecord& record) {
  if (record.step == TQ_FLASH_DUMP || record.step == TQ_FLASH_REBUILD) {
    file_ = record.file.data();
    jobs_.progress().step("reading", kept_bytes(area(), file_));
  } else if (record.step == TQ_FLASH_PACK) {
    file_.clear();
    jobs_.progress().step("packing", 0);
  }
}

// The length of a dump is judged here, before the library sets it to what it should be.
void BackupTracker::on_end(const FlashRecord& record) {
  if (record.code != 0) throw failure_of(record);
  if (record.step != TQ_FLASH_DUMP && record.step != TQ_FLASH_REBUILD) return;
  saved_.back().size_bytes += std::min(record.bytes, kept_bytes(area(), file_));
  if (record.step == TQ_FLASH_REBUILD) return;
  const uint64_t least = expected_dump().bytes;
  ++dumps_;
  if (record.bytes >= least) return;
  throw Failure(EIO, "only " + size_words(record.bytes) + " of " + size_words(least) +
                         " were read into " + file_.substr(2));
}

void BackupTracker::check_line(const FlashRecord& record) const {
  const std::optional<uint64_t> place = unreadable_place(record.line.data());
  if (!place || *place >= expected_dump().end) return;
  std::array<char, 24> hex = {};
  (void)snprintf(hex.data(), hex.size(), "0x%" PRIx64, *place);
  throw Failure(EIO, std::string(record.device.data()) + " cannot be read at " + hex.data());
}

void BackupTracker::begin_area() {
  if (is_in_area_) finish_area();
  is_in_area_ = true;
  dumps_ = 0;
  saved_.push_back({.name = areas_.at(saved_.size())->name});
  jobs_.progress().begin(area().name);
}

void BackupTracker::finish_area() {
  is_in_area_ = false;
  jobs_.progress().end("read and packed", saved_.back().size_bytes);
}

void BackupTracker::tick() {
  if (!file_.empty()) jobs_.progress().at(size_of_file(jobs_.directory() / file_));
}

void BackupTracker::fail_for_area(const Failure& failure) {
  jobs_.progress().give_up();
  if (!is_in_area_) throw Failure(failure);
  saved_.back().failure = failure.what();
  throw Failure(failure.code(), std::string(area().name) + ": " + failure.what(), failure.status());
}

std::optional<uint64_t> unreadable_place(std::string_view line) {
  constexpr std::string_view kMark = " uncorrectable bitflip(s) at offset 0x";
  const size_t at = line.find(kMark);
  if (!line.starts_with("ECC: ") || at == line.npos) return std::nullopt;
  line.remove_prefix(at + kMark.size());
  uint64_t place = 0;
  const auto read = std::from_chars(line.data(), line.data() + line.size(), place, 16);
  return read.ec == std::errc() ? std::optional(place) : std::nullopt;
}

}  // namespace client
