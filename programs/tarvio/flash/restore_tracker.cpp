#include "flash/restore_tracker.h"

#include "flash/read_position.h"

namespace client {

void RestoreTracker::run() {
  jobs_.run(
      "the restore", [] { return tq_lib_backup_restore("", "."); },
      [this](const FlashRecord& record) { on_record(record); }, [this] { tick(); });
  if (begun_ > 0) finish_area();
}

void RestoreTracker::on_record(const FlashRecord& record) {
  if (record.area[0] == '\0') return;  // the control files are read first
  if (begun_ == 0 || current().name != record.area.data()) begin_area();
  if (record.kind == TQ_FLASH_BEGIN) return on_begin(record);
  if (record.kind != TQ_FLASH_END) return;
  if (record.step == TQ_FLASH_WRITE) file_.clear();
  if (record.code != 0 && current().failure.empty()) current().failure = failure_of(record).what();
}

void RestoreTracker::on_begin(const FlashRecord& record) {
  if (record.step == TQ_FLASH_ERASE) {
    current().state = AreaState::kUnfinished;
    jobs_.progress().step("erasing", 0);
  } else if (record.step == TQ_FLASH_WRITE) {
    file_ = record.file.data();
    jobs_.progress().step("writing", record.bytes);
  }
}

void RestoreTracker::begin_area() {
  if (begun_ > 0) finish_area();
  ++begun_;
  jobs_.progress().begin(current().name);
}

void RestoreTracker::finish_area() {
  if (!current().failure.empty()) return jobs_.progress().give_up();
  current().state = AreaState::kWritten;
  jobs_.progress().end("written", current().size_bytes);
}

void RestoreTracker::tick() {
  if (!file_.empty()) jobs_.progress().at(read_position(jobs_.directory() / file_));
}

}  // namespace client
