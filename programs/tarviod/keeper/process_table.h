// The processes of the device, and those of them that an application has started.
#ifndef TARVIOD_PROCESS_TABLE_H
#define TARVIOD_PROCESS_TABLE_H

#include <stddef.h>
#include <sys/types.h>

#include <span>

#include "runtime/process_id.h"

namespace tarviod {

class ProcessTable {
 public:
  ProcessTable() = default;
  ProcessTable(const ProcessTable&) = delete;
  ProcessTable& operator=(const ProcessTable&) = delete;
  ~ProcessTable();

  // Takes down all processes that run now, once. False, with errno, when that failed.
  bool read();

  // The processes of an application are those in its sessions, and those with its name in their
  // environment with all in their sessions.
  //
  // leaders  of its sessions; some may have ended, and process id 0 is none.
  using Leaders = std::span<const runtime::ProcessId>;

  // The oldest process of the application, which is no other one's child; with process id 0 when it
  // has none. Outside of its sessions they count once they have been left to the parent: it gets a
  // signal at their end.
  runtime::ProcessId find_oldest(const char* name, Leaders leaders, pid_t parent);

  // Some process was ending or becoming another program just then, so that the application may have
  // processes that could not be seen.
  [[nodiscard]] bool is_in_doubt() const { return is_in_doubt_; }

  // Sends a signal to all processes of the application, but to none in the caller's own session,
  // which an application may have started. How many there were.
  int send(const char* name, Leaders leaders, int signal);

 private:
  struct Row {
    runtime::ProcessFacts facts;
    bool is_meant;
    bool is_read;
    char* application;  // from its environment; null for none
  };

  [[nodiscard]] std::span<Row> rows() const { return {rows_, count_}; }
  bool append(const runtime::ProcessFacts& facts);
  [[nodiscard]] bool is_led_by(const Row& row, const runtime::ProcessId& leader) const;
  [[nodiscard]] bool has_name(Row& row, const char* name);
  int mark(const char* name, Leaders leaders, pid_t parent);

  Row* rows_ = nullptr;
  size_t count_ = 0;
  size_t capacity_ = 0;
  bool is_in_doubt_ = false;
};

}  // namespace tarviod

#endif
