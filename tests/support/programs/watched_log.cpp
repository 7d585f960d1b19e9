#include "support/programs/watched_log.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "tarvio/com.h"

namespace tarvio_test {
namespace {

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

FileEvents::FileEvents(const char* file) : inotify_(::inotify_init1(IN_CLOEXEC)) {
  EXPECT_GE(::inotify_add_watch(inotify_.fd(), file, IN_OPEN | IN_ACCESS | IN_CLOSE_NOWRITE), 0)
      << file;
}

uint32_t FileEvents::next() {
  pollfd ready = {inotify_.fd(), POLLIN, 0};
  inotify_event event = {};
  if (::poll(&ready, 1, static_cast<int>(kPatience.count())) != 1 ||
      ::read(inotify_.fd(), &event, sizeof event) != sizeof event)
    ADD_FAILURE() << "nobody touches the file";
  return event.mask;
}

void FileEvents::wait_for(uint32_t event) {
  while (!testing::Test::HasFailure() && next() != event) {
  }
}

void wait_for_look(const char* log) {
  FileEvents events(log);
  events.wait_for(IN_OPEN);
  events.wait_for(IN_CLOSE_NOWRITE);
}

pid_t next_reader(const Tarviod& manager, pid_t before, const char* log) {
  pid_t reader = -1;
  const bool is_there = eventually([&] {
    reader = reader_of(manager);
    return reader != -1 && reader != before;
  });
  EXPECT_TRUE(is_there) << manager.errors();
  wait_for_look(log);
  return reader;
}

WatchedLog::WatchedLog() {
  for (const char* application : {"clock", "mark"}) install_package(application, "Application");
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
