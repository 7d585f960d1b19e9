#include "runtime/process_id.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <span>

#include "base/owners.h"
#include "base/pipe.h"

namespace runtime {

namespace {

// The name of a program may hold blanks and brackets: the fields begin after the last bracket.
constexpr int kStateField = 3;
constexpr int kParentField = 4;
constexpr int kSessionField = 6;
constexpr int kStartField = 22;
constexpr int kResidentField = 24;

// Reads a short file of /proc as a text. False, with errno, when that failed.
bool read_text(const char* path, std::span<char> text) {
  const tarvio::Fd file(open(path, O_RDONLY | O_CLOEXEC));
  if (!file.valid()) return false;
  const ssize_t count = tarvio::read_some(file.get(), text.first(text.size() - 1));
  if (count < 0) return false;
  text[static_cast<size_t>(count)] = '\0';
  return true;
}

void store_field(int field, const char* text, ProcessFacts& facts) {
  switch (field) {
    case kStateField:
      facts.state = text[0];
      break;
    case kParentField:
      facts.parent = static_cast<pid_t>(strtol(text, nullptr, 10));
      break;
    case kSessionField:
      facts.session = static_cast<pid_t>(strtol(text, nullptr, 10));
      break;
    case kStartField:
      facts.id.start = strtoull(text, nullptr, 10);
      break;
    case kResidentField:
      facts.memory_bytes =
          strtoull(text, nullptr, 10) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
      break;
    default:
      break;
  }
}

}  // namespace

bool read_process(pid_t pid, ProcessFacts& facts) {
  char path[32];
  char text[1024];
  (void)snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  if (!read_text(path, text)) return false;
  facts = {};
  facts.id.pid = pid;
  char* rest = strrchr(text, ')');
  char* save = nullptr;
  int field = kStateField;
  for (char* word = rest == nullptr ? nullptr : strtok_r(rest + 1, " ", &save);
       word != nullptr && field <= kResidentField; word = strtok_r(nullptr, " ", &save)) {
    store_field(field++, word, facts);
  }
  if (field > kResidentField) return true;
  errno = EINVAL;
  return false;
}

bool is_alive(const ProcessId& id) {
  ProcessFacts facts;
  return read_process(id.pid, facts) && facts.id == id && facts.state != 'Z';
}

bool read_boot_id(BootId& id) {
  if (!read_text("/proc/sys/kernel/random/boot_id", id.text)) return false;
  return strlen(id.text) == sizeof id.text - 1;
}

}  // namespace runtime
