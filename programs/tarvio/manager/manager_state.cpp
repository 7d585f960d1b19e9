#include "manager/manager_state.h"

#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "manager/manager_client.h"
#include "process/failure.h"
#include "process/system_file.h"
#include "runtime/run_paths.h"

namespace client {

namespace {

AppFacts facts_in(const runtime::AppLine& line) {
  return {.name = std::string(line.name),
          .state = line.state,
          .pid = line.pid,
          .since = line.since,
          .starts = line.starts,
          .exit = line.exit,
          .installed = std::string(line.installed),
          .running = std::string(line.running)};
}

}  // namespace

bool AppFacts::has_failed() const {
  using runtime::AppState;
  const bool has_ended = state == AppState::kEnded || state == AppState::kRestarting;
  return has_ended && (exit.kind != runtime::ExitKind::kStatus || exit.number != 0);
}

bool ManagerState::is_short_of_descriptors() const {
  return descriptors_used >= descriptor_limit * runtime::kMostDescriptorPercent / 100;
}

const AppFacts* ManagerState::find_app(const std::string& name) const {
  const auto app = std::find_if(apps.begin(), apps.end(),
                                [&](const AppFacts& each) { return each.name == name; });
  return app == apps.end() ? nullptr : &*app;
}

std::optional<ManagerState> read_state() {
  const std::string text = read_system_file(runtime::kStatePath);
  const std::optional<runtime::StateFile> file = runtime::StateFile::parse(text);
  if (!file || !file->is_current()) return std::nullopt;
  ManagerState state = {.descriptors_used = file->descriptors_used(),
                        .descriptor_limit = file->descriptor_limit(),
                        .apps = {},
                        .statuses = {}};
  file->each_app([&](const runtime::AppLine& line) { state.apps.push_back(facts_in(line)); });
  file->each_status([&](const runtime::StatusLine& line) {
    state.statuses.push_back({std::string(line.name), line.level, std::string(line.detail)});
  });
  return state;
}

std::optional<ManagerState> state_if_any() {
  errno = 0;
  std::optional<ManagerState> state = read_state();
  const std::string path = runtime::kStatePath;
  if (!state && errno == EACCES) {
    throw Failure(EACCES, "no permission to read " + path + "; run tarvio as root");
  }
  // A file or a process that is gone is no manager.
  if (!state && errno != 0 && errno != ENOENT && errno != ESRCH)
    throw Failure::of_system("cannot read " + path);
  return state;
}

ManagerState state_of_manager() {
  if (std::optional<ManagerState> state = state_if_any()) return *std::move(state);
  if (!is_manager_there()) throw no_manager();
  throw Failure(EPROTO, std::string("the running manager has not written a whole ") +
                            runtime::kStatePath + "; update or restart tarviod");
}

bool may_be_manager(uid_t user) {
  struct stat directory = {};
  return user == 0 || (stat(runtime::kRunDirectory, &directory) == 0 && directory.st_uid == user);
}

void await_state(double seconds) {
  await([] { return read_state().has_value(); }, seconds);
}

DirectoryWatch watch_state() { return {runtime::kRunDirectory, IN_MOVED_TO | IN_DELETE}; }

}  // namespace client
