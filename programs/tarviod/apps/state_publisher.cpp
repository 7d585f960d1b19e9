#include "state_publisher.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

#include "base/chain.h"
#include "base/pipe.h"
#include "runtime/growing_text.h"
#include "runtime/run_paths.h"
#include "runtime/whole_file.h"
#include "settings/warn.h"
#include "supervision/descriptors.h"
#include "tarvio/app.h"
#include "tarvio/status_manager.h"

namespace tarviod {

namespace {

using runtime::ExitKind;

constexpr long kMaxStateBytes = 1 << 20;

struct FreeStatuses {
  void operator()(tq_list_t* list) const { (void)tq_status_list_free(list); }
};

// A field must not hold what separates fields and lines.
void write_field(FILE* file, const char* text) {
  (void)fputc('\t', file);
  for (; *text != '\0'; ++text)
    (void)fputc(static_cast<unsigned char>(*text) < ' ' ? ' ' : *text, file);
}

void write_version(FILE* file, const char* version) {
  write_field(file, version[0] == '\0' ? "-" : version);
}

void write_exit(FILE* file, const runtime::AppExit& exit) {
  write_field(file, runtime::kExitWords[static_cast<size_t>(exit.kind)].data());
  if (exit.kind != ExitKind::kNone) (void)fprintf(file, " %d", exit.number);
}

bool is_running(runtime::AppState state) {
  return state == runtime::AppState::kRunning || state == runtime::AppState::kStopping;
}

void write_app(FILE* file, const tq_app_info& app, const AppRuns& runs) {
  const std::string_view state = runtime::word_for(runs.state);
  (void)fputs("app", file);
  write_field(file, app.package->name);
  (void)fprintf(file, "\t%.*s\t%d\t%lld\t%d", static_cast<int>(state.size()), state.data(),
                is_running(runs.state) ? static_cast<int>(runs.process.pid) : 0,
                static_cast<long long>(runs.since), runs.starts);
  write_exit(file, runs.exit);
  write_version(file, app.package->version);
  write_version(file, is_running(runs.state) ? runs.version : "");
  (void)fputc('\n', file);
}

tarvio::CString compose_body(const AppRunsTable& table) {
  runtime::GrowingText text;
  if (text.file() == nullptr) return nullptr;
  const AppRuns never_started = {};
  for (const tq_app_info* app : tarvio::Elements<const tq_app_info>(tq_known_applications())) {
    const AppRuns* const runs = table.find(app->package->name);
    write_app(text.file(), *app, runs == nullptr ? never_started : *runs);
  }
  tq_list_t* found = nullptr;
  const int code = tq_find_all_status2(&found);
  const std::unique_ptr<tq_list_t, FreeStatuses> statuses(found);
  if (code != 0 || statuses == nullptr) return nullptr;
  for (const tq_status* status : tarvio::Elements<const tq_status>(statuses.get())) {
    (void)fprintf(text.file(), "status\t%d", static_cast<int>(status->state));
    write_field(text.file(), status->name);
    write_field(text.file(), status->detail);
    (void)fputc('\n', text.file());
  }
  return text.take();
}

}  // namespace

void StatePublisher::end() {
  has_ended_ = true;
  (void)unlink(runtime::kStatePath);
}

void StatePublisher::publish(const AppRunsTable& runs) {
  if (has_ended_) return;
  tarvio::CString body = compose_body(runs);
  if (body == nullptr) errno = ENOMEM;
  if (body != nullptr && written_ != nullptr && strcmp(body.get(), written_.get()) == 0) return;
  if (body != nullptr && write(body.get())) {
    written_ = std::move(body);
    has_failed_ = false;
    return;
  }
  if (!has_failed_) warn(runtime::kStatePath, strerror(errno));
  has_failed_ = true;
  forget();
  (void)unlink(runtime::kStatePath);  // it would say what was true before
}

bool StatePublisher::write(const char* body) {
  runtime::BootId boot;
  runtime::ProcessFacts manager;
  if (!runtime::read_boot_id(boot) || !runtime::read_process(getpid(), manager)) return false;
  runtime::GrowingText text;
  if (text.file() == nullptr) return false;
  const Descriptors descriptors = count_descriptors();
  (void)fprintf(
      text.file(), "tarvio-state\t1\nboot\t%s\nmanager\t%d\t%llu\ndescriptors\t%d\t%d\n%send\n",
      boot.text, static_cast<int>(manager.id.pid),
      static_cast<unsigned long long>(manager.id.start), descriptors.used, descriptors.limit, body);
  const tarvio::CString whole = text.take();
  return whole != nullptr &&
         runtime::write_whole_file(runtime::kStatePath, whole.get(), mode_, group_);
}

tarvio::CString read_published_state() {
  const tarvio::Fd file(open(runtime::kStatePath, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  struct stat info = {};
  if (!file.valid() && errno == ENOENT) return nullptr;
  if (!file.valid() || fstat(file.get(), &info) != 0) {
    warn(runtime::kStatePath, strerror(errno));
    return nullptr;
  }
  const size_t size = static_cast<size_t>(info.st_size);
  tarvio::CString text(S_ISREG(info.st_mode) && info.st_size <= kMaxStateBytes
                           ? static_cast<char*>(calloc(size + 1, 1))
                           : nullptr);
  if (text == nullptr || tarvio::read_some(file.get(), {text.get(), size}) != info.st_size) {
    warn(runtime::kStatePath, "cannot be read, so it is ignored");
    return nullptr;
  }
  return text;
}

}  // namespace tarviod
