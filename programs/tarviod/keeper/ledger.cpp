// boot BOOT-ID
// keeper PID START
// app PID START NAME     for each process at the head of a session
// end
#include "ledger.h"

#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/run_paths.h"

namespace tarviod {

namespace {

using runtime::kLedgerPath;
using runtime::ProcessId;

constexpr char kNewPath[] = "/run/tarvio/processes.new";
constexpr mode_t kMode = 0600;
constexpr int kMaxLineBytes = 256;
static_assert(kMaxNameBytes == 127);  // as in the format of read_entry

tarvio::File create() {
  (void)unlink(kNewPath);
  tarvio::Fd fd(open(kNewPath, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode));
  tarvio::File file(fd.valid() ? fdopen(fd.get(), "w") : nullptr);
  if (file != nullptr) (void)fd.release();
  return file;
}

bool read_entry(const char* line, LedgerEntry& entry) {
  ProcessId& id = entry.leader;
  return sscanf(line, "app %d %" SCNu64 " %127[^\n]", &id.pid, &id.start, entry.application) == 3 ||
         sscanf(line, "keeper %d %" SCNu64, &id.pid, &id.start) == 2;
}

}  // namespace

LedgerWriter::LedgerWriter() : file_(create()) {
  runtime::BootId boot;
  runtime::ProcessFacts keeper;
  if (file_ == nullptr || !runtime::read_boot_id(boot) ||
      !runtime::read_process(getpid(), keeper)) {
    error_ = errno;
    return;
  }
  (void)fprintf(file_.get(), "boot %s\nkeeper %d %" PRIu64 "\n", boot.text,
                static_cast<int>(keeper.id.pid), keeper.id.start);
}

void LedgerWriter::add(const char* application, const ProcessId& leader) {
  if (file_ == nullptr) return;
  (void)fprintf(file_.get(), "app %d %" PRIu64 " %s\n", static_cast<int>(leader.pid), leader.start,
                application);
}

bool LedgerWriter::finish() {
  errno = error_;
  if (error_ != 0) return false;
  (void)fputs("end\n", file_.get());
  return fflush(file_.get()) == 0 && ferror(file_.get()) == 0 && rename(kNewPath, kLedgerPath) == 0;
}

bool read_ledger(RecordList<LedgerEntry>& entries) {
  const tarvio::File file(fopen(kLedgerPath, "re"));
  if (file == nullptr) return errno == ENOENT;
  char line[kMaxLineBytes];
  runtime::BootId then = {};
  runtime::BootId now;
  const bool has_boot = fgets(line, sizeof line, file.get()) != nullptr &&
                        sscanf(line, "boot %36s", then.text) == 1 && runtime::read_boot_id(now);
  if (!has_boot || strcmp(then.text, now.text) != 0) return has_boot;
  while (fgets(line, sizeof line, file.get()) != nullptr) {
    if (strcmp(line, "end\n") == 0) return true;
    LedgerEntry* const entry = entries.append();
    if (entry == nullptr || !read_entry(line, *entry)) return false;
  }
  return false;
}

}  // namespace tarviod
