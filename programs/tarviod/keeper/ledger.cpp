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
#include <unistd.h>

#include "runtime/run_paths.h"
#include "runtime/whole_file.h"

namespace tarviod {

namespace {

using runtime::kLedgerPath;
using runtime::ProcessId;

constexpr mode_t kMode = 0600;
constexpr int kMaxLineBytes = 256;
static_assert(kMaxNameBytes == 127);  // as in the format of read_entry

bool read_entry(const char* line, LedgerEntry& entry) {
  ProcessId& id = entry.leader;
  return sscanf(line, "app %d %" SCNu64 " %127[^\n]", &id.pid, &id.start, entry.application) == 3 ||
         sscanf(line, "keeper %d %" SCNu64, &id.pid, &id.start) == 2;
}

}  // namespace

LedgerWriter::LedgerWriter() {
  runtime::BootId boot;
  runtime::ProcessFacts keeper;
  if (text_.file() == nullptr || !runtime::read_boot_id(boot) ||
      !runtime::read_process(getpid(), keeper)) {
    error_ = errno;
    return;
  }
  (void)fprintf(text_.file(), "boot %s\nkeeper %d %" PRIu64 "\n", boot.text,
                static_cast<int>(keeper.id.pid), keeper.id.start);
}

void LedgerWriter::add(const char* application, const ProcessId& leader) {
  if (text_.file() == nullptr) return;
  (void)fprintf(text_.file(), "app %d %" PRIu64 " %s\n", static_cast<int>(leader.pid), leader.start,
                application);
}

bool LedgerWriter::finish() {
  if (text_.file() != nullptr) (void)fputs("end\n", text_.file());
  const tarvio::CString text = text_.take();
  errno = error_ != 0 ? error_ : ENOMEM;
  return error_ == 0 && text != nullptr &&
         runtime::write_whole_file(kLedgerPath, text.get(), kMode);
}

bool read_ledger(RecordList<LedgerEntry>& entries) {
  // Without O_NONBLOCK a FIFO would hold the call.
  tarvio::Fd fd(open(kLedgerPath, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd.valid()) return errno == ENOENT;
  const tarvio::File file(fdopen(fd.get(), "r"));
  if (file == nullptr) return false;
  (void)fd.release();
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
