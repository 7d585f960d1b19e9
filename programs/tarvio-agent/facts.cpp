#include "facts.h"

#include <sys/inotify.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "base/pipe.h"
#include "board/opkg_records.h"
#include "board/system_facts.h"
#include "fleet/payload.h"
#include "fleet/topics.h"
#include "runtime/run_paths.h"
#include "say.h"

namespace agent {

namespace {

using client::Json;
using tarvio::Deadline;

constexpr int kBetweenLooksMs = 1000;
constexpr int kBetweenSearchesMs = 5000;
constexpr int kAfterFailureMs = 60'000;
constexpr uint32_t kChanges = IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE | IN_CREATE;

std::string json_text_in(const fleet::ChildEnd& end) {
  const Json json = Json::parse(end.output, nullptr, false);
  return json.is_discarded() ? "null" : fleet::payload_of(json);
}

}  // namespace

Facts::Facts(const Settings& settings, const std::string& packages_root, Outbox& outbox)
    : settings_(settings),
      packages_root_(packages_root),
      outbox_(outbox),
      inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      sources_{
          Source{.take = &Facts::take_version, .words = {"tarvio", "--version"}, .watches = {}},
          Source{.take = &Facts::take_apps,
                 .words = {"tarvio", "status", "--wide", "--json"},
                 .watches = {{.directory = runtime::kRunDirectory}}},
          Source{.take = &Facts::take_packages,
                 .words = {"tarvio", "list", "--json"},
                 .watches = {{.directory = packages_root + kInformation},
                             {.directory = packages_root + kStatusDirectory}}}} {
  watch();
}

// The directories may come later: until then they are looked for.
void Facts::watch() {
  next_watch_ = Deadline::never();
  for (Source& source : sources_) {
    for (Source::Watch& watch : source.watches) {
      if (watch.number >= 0) continue;
      watch.number = inotify_add_watch(inotify_.get(), watch.directory.c_str(), kChanges);
      if (watch.number >= 0) source.has_changed = true;
      if (watch.number < 0) next_watch_ = Deadline::after(kBetweenSearchesMs);
    }
  }
}

void Facts::tell_system() {
  outbox_.keep(fleet::kOnline, fleet::payload_of({{"online", true}}));
  outbox_.keep(fleet::kSystem,
               fleet::payload_of(system_facts(settings_, packages_root_, client_version_)));
}

// "tarvio VERSION"
void Facts::take_version(const fleet::ChildEnd& end) {
  const std::string line = end.output.substr(0, end.output.find('\n'));
  client_version_ = line.substr(line.rfind(' ') + 1);
  tell_system();
}

void Facts::take_apps(const fleet::ChildEnd& end) {
  outbox_.keep(fleet::kApps, json_text_in(end));
  if (std::exchange(has_manager_, end.status == 0) != has_manager_) tell_system();
}

// Free space and what opkg has left half done change with them.
void Facts::take_packages(const fleet::ChildEnd& end) {
  outbox_.keep(fleet::kPackages, json_text_in(end));
  tell_system();
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
    for (Source::Watch& watch : source.watches) {
      if (watch.number != watched) continue;
      source.has_changed = true;
      if ((change & IN_IGNORED) == 0) continue;
      watch.number = -1;  // the directory is gone
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
      (this->*source.take)(*ended);
    }
  } else if (source.has_changed && source.not_before.passed()) {
    source.has_changed = false;
    source.not_before = Deadline::after(kBetweenLooksMs);
    try {
      source.child = std::make_unique<fleet::ChildProcess>(source.words);
    } catch (const std::runtime_error& error) {
      say(error.what());
      source.has_changed = true;
      source.not_before = Deadline::after(kAfterFailureMs);
    }
  }
}

void Facts::step() {
  take_changes();
  if (next_watch_.passed()) watch();
  for (Source& source : sources_) go_on(source);
}

}  // namespace agent
