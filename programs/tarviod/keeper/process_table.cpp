#include "process_table.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "base/owners.h"
#include "keeper.h"

namespace tarviod {

namespace {

using runtime::ProcessFacts;
using runtime::ProcessId;

bool is_shortage(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }
constexpr pid_t kKernelSession = 0;

bool is_refusal(int error) { return error == EACCES || error == EPERM; }

// Whether a process still is the program that it was when its environment was opened.
bool is_unchanged(int environment) {
  char byte = 0;
  return pread(environment, &byte, 1, 0) == 1;
}

// Looks for the application's name in the environment with which a process became the program that
// it is. False when that could not be read whole.
bool find_application(pid_t pid, char*& application) {
  char path[40];
  (void)snprintf(path, sizeof path, "/proc/%d/environ", static_cast<int>(pid));
  const tarvio::File file(fopen(path, "re"));
  if (file == nullptr) return is_refusal(errno);
  constexpr size_t kLength = sizeof kApplicationVariable - 1;
  const int fd = fileno(file.get());
  bool has_variables = false;
  char* variable = nullptr;
  size_t size = 0;
  // Where another program is executed meanwhile, the file ends early: before the variable, or in
  // it, and then what there is of the name may be that of another application.
  for (ssize_t length; (length = getdelim(&variable, &size, '\0', file.get())) > 0;) {
    has_variables = true;
    if (strncmp(variable, kApplicationVariable, kLength) != 0 || variable[kLength] != '=') continue;
    if (variable[length - 1] == '\0' || is_unchanged(fd)) {
      application = strdup(variable + kLength + 1);
    }
    has_variables = application != nullptr;
    break;
  }
  free(variable);
  return application != nullptr || (has_variables && is_unchanged(fd));
}

}  // namespace

ProcessTable::~ProcessTable() {
  for (const Row& row : rows()) free(row.application);
  free(rows_);
}

bool ProcessTable::append(const ProcessFacts& facts) {
  constexpr size_t kMoreRows = 64;
  if (count_ == capacity_) {
    void* const room = realloc(rows_, (capacity_ + kMoreRows) * sizeof(Row));
    if (room == nullptr) return false;
    rows_ = static_cast<Row*>(room);
    capacity_ += kMoreRows;
  }
  rows_[count_++] = {.facts = facts, .is_meant = false, .is_read = false, .application = nullptr};
  return true;
}

bool ProcessTable::read() {
  const tarvio::Directory directory(opendir("/proc"));
  if (directory == nullptr) return false;
  errno = 0;
  while (const dirent* entry = readdir(directory.get())) {
    const auto pid = static_cast<pid_t>(strtol(entry->d_name, nullptr, 10));
    ProcessFacts facts;
    if (pid <= 0) continue;
    if (!runtime::read_process(pid, facts)) {
      if (is_shortage(errno)) return false;
    } else if (!append(facts)) {
      return false;
    }
    errno = 0;
  }
  return errno == 0;
}

// A number that another process has by now says nothing about its session.
bool ProcessTable::is_led_by(const Row& row, const ProcessId& leader) const {
  if (row.facts.id == leader) return true;
  return leader.pid != kKernelSession && row.facts.session == leader.pid &&
         std::none_of(rows().begin(), rows().end(), [&](const Row& other) {
           return other.facts.id.pid == leader.pid && other.facts.id != leader;
         });
}

// Nothing can be read of a process that has ended meanwhile, and until it has its new program.
bool ProcessTable::has_name(Row& row, const char* name) {
  if (!row.is_read && !find_application(row.facts.id.pid, row.application)) is_in_doubt_ = true;
  row.is_read = true;
  return row.application != nullptr &&
         (strcmp(name, kAnyApplication) == 0 || strcmp(row.application, name) == 0);
}

// Marks the processes of an application, and returns how many there are.
//
// parent  of those with its name; 0 for any.
int ProcessTable::mark(const char* name, Leaders leaders, pid_t parent) {
  const pid_t own_session = getsid(0);
  for (Row& row : rows()) {
    const ProcessFacts& facts = row.facts;
    row.is_meant = false;
    if (facts.state == 'Z') {
      // What it has left to the parent may have been listed before that.
      if (facts.parent == parent) is_in_doubt_ = true;
      continue;
    }
    row.is_meant = std::any_of(leaders.begin(), leaders.end(), [&](const ProcessId& leader) {
      return facts.session == own_session ? facts.id == leader : is_led_by(row, leader);
    });
    if (row.is_meant || facts.session == own_session || facts.session == kKernelSession ||
        name[0] == '\0') {
      continue;
    }
    if (parent == 0 || facts.parent == parent) row.is_meant = has_name(row, name);
  }
  // What one of them has started in its session need not show the name any more.
  for (const Row& found : rows()) {
    if (!found.is_meant || found.facts.session == own_session) continue;
    for (Row& row : rows()) {
      if (row.facts.session == found.facts.session && row.facts.state != 'Z') row.is_meant = true;
    }
  }
  return static_cast<int>(
      std::count_if(rows().begin(), rows().end(), [](const Row& row) { return row.is_meant; }));
}

ProcessId ProcessTable::find_oldest(const char* name, Leaders leaders, pid_t parent) {
  ProcessId oldest;
  (void)mark(name, leaders, parent);
  for (const Row& row : rows()) {
    const ProcessId& id = row.facts.id;
    if (row.is_meant && (oldest.pid == 0 || id.start < oldest.start)) oldest = id;
  }
  return oldest;
}

int ProcessTable::send(const char* name, Leaders leaders, int signal) {
  const int count = mark(name, leaders, 0);
  for (const Row& row : rows()) {
    if (row.is_meant) (void)kill(row.facts.id.pid, signal);
  }
  return count;
}

}  // namespace tarviod
