// A process that cannot be taken for a later one with the same number.
#ifndef TARVIO_RUNTIME_PROCESS_ID_H
#define TARVIO_RUNTIME_PROCESS_ID_H

#include <stdint.h>
#include <sys/types.h>

namespace runtime {

struct ProcessId {
  pid_t pid = 0;
  uint64_t start = 0;  // in clock ticks since the boot, as in /proc/PID/stat

  bool operator==(const ProcessId&) const = default;
};

// What /proc/PID/stat says about a process.
struct ProcessFacts {
  ProcessId id;
  pid_t parent = 0;
  pid_t session = 0;
  char state = 0;             // 'Z' for a zombie
  uint64_t memory_bytes = 0;  // resident
};

// False, with errno, when there is no such process or its file cannot be read.
bool read_process(pid_t pid, ProcessFacts& facts);

// The process with this number is the one that is meant, and no zombie.
bool is_alive(const ProcessId& id);

// The kernel's name for the time since the last boot: 36 characters and a zero byte.
struct BootId {
  char text[37];
};

// False, with errno, when /proc does not give it.
bool read_boot_id(BootId& id);

}  // namespace runtime

#endif
