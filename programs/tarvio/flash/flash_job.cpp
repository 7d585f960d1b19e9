#include "flash/flash_job.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "base/owners.h"
#include "process/failure.h"
#include "process/paths.h"
#include "tarvio/nand.h"
#include "terminal/words.h"

namespace client {

namespace {

constexpr char kDump[] = "dump";  // in the work directory
constexpr uint64_t kUsualPage = 2048;

[[noreturn]] void fail_to_read(const char* device, int code) {
  throw Failure(code, std::string("cannot read ") + device + ": " + result_words(code));
}

// What a call of the library came to.
FlashRecord observed(const std::function<int()>& call, int output) {
  FlashRecord result;
  std::string words;
  try {
    keep_mounts_private();
    const RecordingObserver observer(output);
    result.code = call();
    words = result_words(result.code);
  } catch (const Failure& failure) {
    result.code = failure.code();
    words = failure.what();
  }
  (void)words.copy(result.line.data(), result.line.size() - 1);
  return result;
}

}  // namespace

DeviceSize size_of_device(const char* device) {
  const tarvio::Fd file(open(device, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!file.valid() || fstat(file.get(), &status) != 0) fail_to_read(device, errno);
  if (S_ISREG(status.st_mode)) return {static_cast<uint64_t>(status.st_size), kUsualPage};
  mtd_info_user info = {};
  if (ioctl(file.get(), MEMGETINFO, &info) != 0) fail_to_read(device, errno);
  return {info.size, info.writesize};
}

void FlashJobs::run(const char* tools, const std::function<int()>& call,
                    const std::function<void(const FlashRecord&)>& on_record,
                    const std::function<void()>& on_tick) const {
  std::optional<FlashRecord> result;
  RecordReader records([&](const FlashRecord& record) {
    if (record.kind != FlashRecord::kResult) return on_record(record);
    result = record;
  });
  const auto work = [&](int output) {
    (void)signal(SIGPIPE, SIG_DFL);  // nobody is left to report to: no further tool then
    lock_.share_with_tools();
    write_record(output, observed(call, output));
  };
  (void)run_apart(directory_, Rights::of_caller(), tools, work, seconds_,
                  [&records](std::string_view piece) { records.feed(piece); },
                  {on_tick, progress_.tick_ms()});
  if (!result) throw Failure(EIO, std::string(tools) + " ended without a result");
  if (result->code != 0) throw Failure(result->code, result->line.data());
}

uint64_t FlashJobs::good_bytes(const char* device) const {
  const uint64_t bytes = size_of_device(device).bytes;
  const auto count = [device] {
    int bad_blocks = -1;
    const int result = tq_nand_count_badblock(device, &bad_blocks);
    if (result != 0) fail_to_read(device, result);
    if (bad_blocks < 0) {
      throw Failure(EIO, std::string("cannot read ") + device +
                             ": nanddump did not report the number of bad blocks");
    }
    return std::to_string(bad_blocks);
  };
  const std::string counted =
      run_job(directory_, Rights::of_caller(), "nanddump", count, seconds_).result;
  const uint64_t bad = std::strtoull(counted.c_str(), nullptr, 10) * tarvio::kEraseBlockBytes;
  return bad < bytes ? bytes - bad : 0;
}

std::string FlashJobs::dump(const AreaPart& part) const {
  std::string path = directory_ / kDump;
  (void)unlink(path.c_str());
  const uint64_t bytes = size_of_device(part.device).bytes;
  progress_.step("reading again", bytes - std::min<uint64_t>(bytes, part.start));
  run(
      "nanddump", [&part] { return tq_nanddump(part.device, kDump, part.start, 0); },
      [](const FlashRecord&) {}, [&] { progress_.at(size_of_file(path)); });
  return path;
}

}  // namespace client
