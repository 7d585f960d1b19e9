#include "flash/area_restoring.h"

#include <unistd.h>

#include "flash/read_position.h"
#include "process/failure.h"
#include "tarvio/backup.h"
#include "terminal/words.h"

namespace client {

void AreaRestoring::run() {
  jobs_.run(
      "the restore", [] { return tq_lib_backup_restore("", "."); },
      [this](const FlashEvent& event) { take(event); }, [this] { tick(); });
  if (begun_ > 0) finish();
}

void AreaRestoring::take(const FlashEvent& event) {
  if (event.step == FlashStep::kRestoring) return begin();
  if (begun_ == 0) return;
  switch (event.step) {
    case FlashStep::kErasing:
      current().state = AreaState::kUnfinished;
      return jobs_.progress().step("erasing", 0);
    case FlashStep::kErased:
      return note("erasing", event.number);
    case FlashStep::kWriting:
      file_ = event.file;
      return jobs_.progress().step("writing", size_of_file(jobs_.directory() / file_));
    case FlashStep::kWritten:
      (void)unlink((jobs_.directory() / file_).c_str());
      file_.clear();
      return note("writing", event.number);
    case FlashStep::kNotRestored:
      if (current().failure.empty()) current().failure = "it could not be restored";
      return;
    default:
      return;
  }
}

void AreaRestoring::begin() {
  if (begun_ > 0) finish();
  ++begun_;
  jobs_.progress().begin(areas_.at(begun_ - 1)->name);
}

void AreaRestoring::finish() {
  if (!current().failure.empty()) return jobs_.progress().give_up();
  current().state = AreaState::kWritten;
  jobs_.progress().end("written", current().size_bytes);
}

void AreaRestoring::note(const char* step, int64_t code) {
  if (code == 0 || !current().failure.empty()) return;
  current().failure = std::string(step) + " failed: " + result_words(static_cast<int32_t>(code));
}

void AreaRestoring::tick() {
  if (!file_.empty()) jobs_.progress().at(read_position(jobs_.directory() / file_));
}

}  // namespace client
