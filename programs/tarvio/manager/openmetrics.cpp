#include "manager/openmetrics.h"

#include <cstdint>
#include <optional>
#include <utility>

#include "terminal/printable_text.h"

namespace client {

namespace {

struct Family {
  const char* name;
  const char* type;
  const char* unit;  // empty for none; else the name ends with it
  const char* help;
};

// A label and its value.
using Label = std::pair<const char*, std::string>;
using Labels = std::vector<Label>;

std::string quoted(const std::string& value) {
  std::string text = "\"";
  for (const char each : printable(value)) {
    if (each == '"' || each == '\\') text += '\\';
    text += each;
  }
  return text + '"';
}

// Families one after the other, each with its samples.
class Exposition {
 public:
  void begin(const Family& family) {
    name_ = family.name;
    text_ += "# TYPE " + name_ + ' ' + family.type + '\n';
    if (*family.unit != '\0') text_ += "# UNIT " + name_ + ' ' + family.unit + '\n';
    text_ += "# HELP " + name_ + ' ' + family.help + '\n';
  }

  void add(const Labels& labels, int64_t value, const char* suffix = "") {
    text_ += name_ + suffix;
    char separator = '{';
    for (const auto& [label, content] : labels) {
      text_ += std::exchange(separator, ',') + std::string(label) + '=' + quoted(content);
    }
    if (!labels.empty()) text_ += '}';
    text_ += ' ' + std::to_string(value) + '\n';
  }

  std::string end() { return std::move(text_) + "# EOF\n"; }

 private:
  std::string name_;
  std::string text_;
};

void add_manager(const ManagerState& state, Exposition& to) {
  to.begin({"tarvio_manager_open_descriptors", "gauge", "",
            "Descriptors that the manager had open at the last change."});
  to.add({}, state.descriptors_used);
  to.begin({"tarvio_manager_max_descriptors", "gauge", "", "Descriptors that it may have open."});
  to.add({}, state.descriptor_limit);
}

// A family with a sample for each application of which there is a value.
template <typename ValueOf>
void add_family(const Family& family, const char* suffix, const std::vector<Entry>& entries,
                ValueOf value_of, Exposition& to) {
  to.begin(family);
  for (const Entry& entry : entries) {
    if (!entry.app) continue;
    const std::optional<int64_t> value = value_of(entry);
    if (value) to.add({{"application", entry.name}}, *value, suffix);
  }
}

void add_figures(const std::vector<Entry>& entries, Exposition& to) {
  using Value = std::optional<int64_t>;
  add_family(
      {"tarvio_application_running", "gauge", "", "1 while the application runs, else 0."}, "",
      entries, [](const Entry& entry) -> Value { return entry.app->is_running() ? 1 : 0; }, to);
  add_family(
      {"tarvio_application_starts", "counter", "", "Starts since the manager's first."}, "_total",
      entries, [](const Entry& entry) -> Value { return entry.app->starts; }, to);
  add_family(
      {"tarvio_application_memory_bytes", "gauge", "bytes", "Resident memory of its session."}, "",
      entries,
      [](const Entry& entry) -> Value {
        if (!entry.memory_bytes) return std::nullopt;
        return static_cast<int64_t>(*entry.memory_bytes);
      },
      to);
  add_family(
      {"tarvio_application_state_since_seconds", "gauge", "seconds",
       "When it came into its state, as a time stamp."},
      "", entries,
      [](const Entry& entry) -> Value {
        return entry.app->since == 0 ? std::nullopt : Value(entry.app->since);
      },
      to);
}

void add_states(const std::vector<Entry>& entries, Exposition& to) {
  to.begin({"tarvio_application_state", "stateset", "", "What the application is doing."});
  for (const Entry& entry : entries) {
    if (!entry.app) continue;
    for (const std::string_view word : runtime::kAppStateWords) {
      to.add({{"application", entry.name}, {"tarvio_application_state", std::string(word)}},
             word == runtime::word_for(entry.app->state) ? 1 : 0);
    }
  }
}

void add_exits(const std::vector<Entry>& entries, Exposition& to) {
  to.begin({"tarvio_application_last_exit", "gauge", "",
            "Exit status, signal or error of the run that ended last."});
  for (const Entry& entry : entries) {
    if (!entry.app || entry.app->exit.kind == runtime::ExitKind::kNone) continue;
    to.add({{"application", entry.name}, {"kind", kind_word(entry.app->exit)}},
           entry.app->exit.number);
  }
}

void add_versions(const std::vector<Entry>& entries, Exposition& to) {
  to.begin({"tarvio_application", "info", "", "Versions of the package."});
  for (const Entry& entry : entries) {
    if (!entry.app) continue;
    to.add({{"application", entry.name},
            {"installed_version", entry.app->installed},
            {"running_version", entry.app->running}},
           1, "_info");
  }
}

void add_statuses(const std::vector<Entry>& entries, Exposition& to) {
  to.begin({"tarvio_status", "gauge", "", "0 normal, 1 warning, 2 error."});
  for (const Entry& entry : entries) {
    if (entry.status) to.add({{"name", entry.name}}, entry.status->state);
  }
}

}  // namespace

std::string openmetrics_of(const ManagerState& state, const std::vector<Entry>& entries) {
  Exposition exposition;
  add_manager(state, exposition);
  add_figures(entries, exposition);
  add_states(entries, exposition);
  add_exits(entries, exposition);
  add_versions(entries, exposition);
  add_statuses(entries, exposition);
  return exposition.end();
}

}  // namespace client
