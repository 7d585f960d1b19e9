#include "manager/app_text.h"

#include <array>
#include <cstring>
#include <ctime>

#include "manager/session_memory.h"
#include "manager/status_text.h"
#include "terminal/output.h"
#include "terminal/text_table.h"
#include "terminal/words.h"

namespace client {

namespace {

using runtime::ExitKind;

std::string local_time(int64_t seconds) {
  const auto time = static_cast<time_t>(seconds);
  tm parts = {};
  std::array<char, 32> text = {};
  if (seconds == 0 || localtime_r(&time, &parts) == nullptr) return "-";
  (void)strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
  return text.data();
}

std::string version_words(const AppFacts& app) {
  if (!app.is_upgraded()) return app.installed;
  return app.running + ", upgraded to " + app.installed + ": restart it";
}

std::string or_dash(const std::string& text) { return text.empty() ? "-" : text; }

Row row_of(const Entry& entry) {
  const AppFacts app = entry.app.value_or(AppFacts{});
  const Status status = entry.status.value_or(Status{});
  return {{entry.name},
          entry.status ? state_cell(status.state) : Cell{"-"},
          {entry.app ? state_word(app) : "-"},
          {app.is_running() ? std::to_string(app.pid) : "-"},
          {local_time(app.since)},
          {entry.app ? std::to_string(app.starts) : "-"},
          {or_dash(end_words(app.exit))},
          {entry.memory_bytes ? size_words(*entry.memory_bytes) : "-"},
          {or_dash(version_words(app))},
          {status.detail}};
}

Json json_of(const runtime::AppExit& exit) {
  if (exit.kind == ExitKind::kNone) return nullptr;
  return {{kind_word(exit), exit.number}, {"message", end_words(exit)}};
}

void add_app(const Entry& entry, Json& json) {
  const AppFacts app = entry.app.value_or(AppFacts{});
  json["run_state"] = entry.app ? Json(state_word(app)) : Json();
  json["pid"] = app.is_running() ? Json(app.pid) : Json();
  json["since"] = app.since != 0 ? Json(app.since) : Json();
  json["starts"] = entry.app ? Json(app.starts) : Json();
  json["last_exit"] = json_of(app.exit);
  json["memory"] = entry.memory_bytes ? Json(*entry.memory_bytes) : Json();
  json["installed_version"] = or_null(app.installed);
  json["running_version"] = or_null(app.running);
  json["upgraded"] = entry.app ? Json(app.is_upgraded()) : Json();
}

}  // namespace

std::vector<Entry> entries_of(const ManagerState& state) {
  const SessionMemory memory;
  std::vector<Entry> entries;
  for (const AppFacts& app : state.apps) {
    Entry entry = {.name = app.name, .app = app, .memory_bytes = memory.of(app.pid), .status = {}};
    if (const Status* const status = find_status(state.statuses, app.name)) entry.status = *status;
    entries.push_back(std::move(entry));
  }
  for (const Status& status : state.statuses) {
    if (state.find_app(status.name) != nullptr) continue;
    entries.push_back({.name = status.name, .app = {}, .status = status});
  }
  return entries;
}

std::string state_word(const AppFacts& app) { return std::string(runtime::word_for(app.state)); }

const char* kind_word(const runtime::AppExit& exit) {
  if (exit.kind == ExitKind::kStatus) return "status";
  return exit.kind == ExitKind::kSignal ? "signal" : "error";
}

std::string end_words(const runtime::AppExit& exit) {
  const std::string number = std::to_string(exit.number);
  switch (exit.kind) {
    case ExitKind::kStatus:
      return "status " + number;
    case ExitKind::kSignal:
      return "signal " + number + ": " + strsignal(exit.number);
    case ExitKind::kNone:
      return "";
    default:
      return std::string(exit.failed_step()) + ": " + strerror(exit.number);
  }
}

Json json_of(const Status& status) {
  return {{"name", status.name},
          {"state", state_word(status.state)},
          {"state_code", status.state},
          {"detail", status.detail}};
}

Json json_of(const Entry& entry) {
  Json json = {
      {"name", entry.name}, {"state", nullptr}, {"state_code", nullptr}, {"detail", nullptr}};
  if (entry.status) json = json_of(*entry.status);
  add_app(entry, json);
  return json;
}

std::string table_of(const std::vector<Entry>& entries) {
  std::vector<Row> rows = {header_of({"NAME", "STATE", "RUN", "PID", "SINCE", "STARTS", "LAST EXIT",
                                      "MEMORY", "VERSION", "DETAIL"})};
  for (const Entry& entry : entries) rows.push_back(row_of(entry));
  return render_table(rows, wants_colour());
}

}  // namespace client
