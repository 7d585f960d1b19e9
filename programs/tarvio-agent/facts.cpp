#include "facts.h"

#include <sys/inotify.h>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>

#include <cerrno>
#include <ctime>
#include <fstream>
#include <string>

#include "base/pipe.h"
#include "fleet/payload.h"
#include "fleet/topics.h"
#include "runtime/run_paths.h"
#include "tarvio/tarvio.h"

namespace agent {

namespace {

using client::Json;
using tarvio::Deadline;

constexpr int kBetweenLooksMs = 1000;
constexpr int kBetweenSearchesMs = 5000;
constexpr char kPackageDirectory[] = "/usr/lib/opkg/info";
constexpr uint32_t kChanges = IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE | IN_CREATE;

uint64_t free_bytes() {
  struct statvfs space = {};
  if (statvfs("/", &space) != 0) return 0;
  return uint64_t{space.f_bavail} * space.f_frsize;
}

// In seconds since the epoch. The difference to now is the uptime, which would change all the time.
int64_t boot_time() {
  timespec uptime = {};
  (void)clock_gettime(CLOCK_BOOTTIME, &uptime);
  return static_cast<int64_t>(std::time(nullptr)) - static_cast<int64_t>(uptime.tv_sec);
}

}  // namespace

Facts::Facts(const Settings& settings, Outbox& outbox)
    : settings_(settings),
      outbox_(outbox),
      inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      sources_{Source{.topic = fleet::kApps,
                      .words = {"tarvio", "status", "--wide", "--json"},
                      .directory = runtime::kRunDirectory},
               Source{.topic = fleet::kPackages,
                      .words = {"tarvio", "list", "--json"},
                      .directory = kPackageDirectory}} {
  watch();
}

// The directories may come later: until then they are looked for.
void Facts::watch() {
  next_watch_ = Deadline::never();
  for (Source& source : sources_) {
    if (source.watch >= 0) continue;
    source.watch = inotify_add_watch(inotify_.get(), source.directory, kChanges);
    if (source.watch >= 0) source.has_changed = true;
    if (source.watch < 0) next_watch_ = Deadline::after(kBetweenSearchesMs);
  }
}

void Facts::tell_system() {
  outbox_.keep(fleet::kOnline, fleet::payload_of({{"online", true}}));
  outbox_.keep(fleet::kSystem, fleet::payload_of({{"agent", TARVIO_VERSION},
                                                  {"tags", settings_.tags},
                                                  {"booted", boot_time()},
                                                  {"free_bytes", free_bytes()},
                                                  {"clock", std::time(nullptr)}}));
}

void Facts::list(pollfd* files) const {
  files[0] = {.fd = inotify_.get(), .events = POLLIN, .revents = 0};
  pollfd* at = files + 1;
  for (const Source& source : sources_) {
    if (source.child != nullptr) {
      source.child->list(at);
    } else {
      at[0] = at[1] = {.fd = -1, .events = 0, .revents = 0};
    }
    at += fleet::ChildProcess::kFiles;
  }
}

Deadline Facts::due() const {
  Deadline due = next_watch_;
  for (const Source& source : sources_) {
    if (source.has_changed && source.child == nullptr)
      due = Deadline::sooner(due, source.not_before);
  }
  return due;
}

void Facts::take_change(int watched, uint32_t change) {
  for (Source& source : sources_) {
    if (source.watch != watched) continue;
    source.has_changed = true;
    if ((change & IN_IGNORED) != 0) {  // the directory is gone
      source.watch = -1;
      next_watch_ = Deadline::after(0);
    }
  }
}

void Facts::take_changes() {
  alignas(inotify_event) std::array<char, 4096> bytes;
  for (ssize_t count = 0; (count = tarvio::read_some(inotify_.get(), bytes)) > 0;) {
    for (ssize_t at = 0; at < count;) {
      const auto* event = reinterpret_cast<const inotify_event*>(bytes.data() + at);
      take_change(event->wd, event->mask);
      at += static_cast<ssize_t>(sizeof *event + event->len);
    }
  }
}

void Facts::go_on(Source& source) {
  if (source.child != nullptr) {
    if (const std::optional<fleet::ChildEnd> ended = source.child->step()) {
      source.child.reset();
      const Json json = Json::parse(ended->output, nullptr, false);
      outbox_.keep(source.topic, json.is_discarded() ? "null" : fleet::payload_of(json));
    }
  } else if (source.has_changed && source.not_before.passed()) {
    source.has_changed = false;
    source.not_before = Deadline::after(kBetweenLooksMs);
    source.child = std::make_unique<fleet::ChildProcess>(source.words);
  }
}

void Facts::step() {
  take_changes();
  if (next_watch_.passed()) watch();
  for (Source& source : sources_) go_on(source);
}

}  // namespace agent
