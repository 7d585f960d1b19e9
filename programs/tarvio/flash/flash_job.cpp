#include "flash/flash_job.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "base/owners.h"
#include "process/failure.h"
#include "tarvio/log.h"
#include "tarvio/nand.h"
#include "terminal/words.h"

namespace client {

namespace {

constexpr char kDump[] = "dump";  // in the work directory
constexpr uint64_t kUsualPage = 2048;

[[noreturn]] void fail_to_read(const char* device, int code) {
  throw Failure(code, std::string("cannot read ") + device + ": " + result_words(code));
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
                    const std::function<void(const FlashEvent&)>& on_event,
                    const std::function<void()>& on_tick) const {
  LineCutter lines([&on_event](const std::string& line) {
    if (const std::optional<FlashEvent> event = event_in(line)) on_event(*event);
  });
  const auto job = [&] {
    (void)signal(SIGPIPE, SIG_DFL);  // nobody is left to follow: no further step then
    lock_.share_with_tools();
    keep_mounts_private();
    (void)setlogmask(LOG_UPTO(LOG_INFO));  // the trace is for this program
    tq_set_log_level(TQ_LOG_DEBUG);
    const TraceRelay relay(STDOUT_FILENO);
    const int result = call();
    if (result != 0) throw Failure(result, result_words(result));
    return std::string();
  };
  (void)run_job(directory_, tools, job, seconds_,
                {.trace = [&lines](std::string_view piece) { lines.take(piece); },
                 .tick = on_tick,
                 .tick_ms = progress_.tick_ms()});
}

uint64_t FlashJobs::good_bytes(const char* device) const {
  const uint64_t bytes = size_of_device(device).bytes;
  const auto count = [device] {
    int bad_blocks = -1;
    const int result = tq_nand_count_badblock(device, &bad_blocks);
    if (result != 0) fail_to_read(device, result);
    if (bad_blocks < 0) {
      throw Failure(EIO, std::string("cannot read ") + device +
                             ": nanddump does not tell how many bad blocks it has");
    }
    return std::to_string(bad_blocks);
  };
  const std::string told = run_job(directory_, "nanddump", count, seconds_).result;
  const uint64_t bad = std::strtoull(told.c_str(), nullptr, 10) * tarvio::kEraseBlockBytes;
  return bad < bytes ? bytes - bad : 0;
}

std::string FlashJobs::dump(const AreaPart& part) const {
  std::string path = directory_ / kDump;
  (void)unlink(path.c_str());
  const uint64_t bytes = size_of_device(part.device).bytes;
  progress_.step("reading again", bytes - std::min<uint64_t>(bytes, part.start));
  run(
      "nanddump", [&part] { return tq_nanddump(part.device, kDump, part.start, 0); },
      [](const FlashEvent&) {}, [&] { progress_.at(size_of_file(path)); });
  return path;
}

}  // namespace client
