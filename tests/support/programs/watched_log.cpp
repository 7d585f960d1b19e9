#include "support/programs/watched_log.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

// The reader's own descriptors. A read leaves both ends of a pipe behind them.
constexpr size_t kOwnDescriptors = 4;

long occurrences(const std::string& text, const std::string& part) {
  long count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

}  // namespace

std::string log_line(const std::string& level, const std::string& text, const std::string& ident) {
  return "Jan  1 00:00:00 board user." + level + " " + ident + ": " + text + "\n";
}

void append_to_log(std::string_view text) {
  std::ofstream file(kLogFile, std::ios::app);
  if (!(file << text << std::flush)) ADD_FAILURE() << "cannot write " << kLogFile;
}

pid_t reader_of(const Tarviod& manager) {
  for (const pid_t child : children_of(manager.pid())) {
    std::ifstream file("/proc/" + std::to_string(child) + "/cmdline");
    std::string command;  // none when the process is gone meanwhile
    std::getline(file, command, '\0');
    if (command.starts_with("tarviod-log-reader")) return child;
  }
  return -1;
}

size_t descriptors_of(pid_t process) {
  std::error_code gone;
  const std::filesystem::directory_iterator directory("/proc/" + std::to_string(process) + "/fd",
                                                      gone);
  return static_cast<size_t>(std::distance(begin(directory), end(directory)));
}

namespace {

bool sleeps(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string text;
  std::getline(file, text);
  const size_t name_end = text.rfind(") ");
  return name_end != std::string::npos && text[name_end + 2] == 'S';
}

// The number of descriptors alone does not tell: there are as many of other files while the reader
// is loaded, and for a moment at the begin of a read, when it does not sleep.
bool has_read(pid_t reader) {
  if (!sleeps(reader)) return false;
  const std::filesystem::path directory = "/proc/" + std::to_string(reader) + "/fd";
  std::error_code gone;
  const auto file_of = [&](size_t descriptor) {
    return std::filesystem::read_symlink(directory / std::to_string(descriptor), gone).string();
  };
  const std::string one_end = file_of(kOwnDescriptors);
  return one_end.starts_with("pipe:") && one_end == file_of(kOwnDescriptors + 1) &&
         descriptors_of(reader) == kOwnDescriptors + 2;
}

}  // namespace

pid_t next_reader(const Tarviod& manager, pid_t before) {
  pid_t reader = -1;
  const bool is_ready = eventually([&] {
    reader = reader_of(manager);
    return reader != -1 && reader != before && has_read(reader);
  });
  EXPECT_TRUE(is_ready) << manager.errors();
  return reader;
}

WatchedLog::WatchedLog() {
  write_file(kLogFile, "");
  write_file(kConfigFile, "log_period: 1\nhook.clock: clock\nhook.mark: mark\n");
}

void WatchedLog::start(const std::vector<std::string>& arguments,
                       const std::function<void()>& prepare) {
  manager_ = std::make_unique<Tarviod>(arguments, [&] {
    with_module(TARVIOD_FAST_LOOKS)();
    prepare();
  });
  ASSERT_TRUE(manager_->answers());
}

testing::AssertionResult WatchedLog::becomes(const std::string& status,
                                             const std::string& application) {
  if (eventually([&] { return status_of(application) == status; }))
    return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << application << " is '" << status_of(application) << "', errors: " << manager_->errors();
}

testing::AssertionResult WatchedLog::catches_up() {
  const std::string mark = std::to_string(++marks_);
  append_to_log(log_line("info", mark, "mark"));
  return becomes("0\n" + mark + "\n", "mark");
}

long WatchedLog::counted() {
  const std::string statuses = ask(TQ_COM_SOCKET_PATH, "status_all\n");
  const std::string output = manager_->output();
  // The first line of an application makes its status without a word.
  const long lines = occurrences(statuses, "\n") / 3 + occurrences(output, "updating status\n") +
                     occurrences(output, "nothing to do with status\n");
  return lines - marks_;
}

}  // namespace tarvio_test
