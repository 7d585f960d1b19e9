// The manager's states and figures, written by a test that stands for the manager.
#ifndef TARVIO_TESTS_SUPPORT_PROGRAMS_WRITTEN_STATE_H
#define TARVIO_TESTS_SUPPORT_PROGRAMS_WRITTEN_STATE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "runtime/process_id.h"
#include "runtime/run_paths.h"
#include "support/files.h"

namespace tarvio_test {

inline std::string boot_id() {
  std::string id = read_file("/proc/sys/kernel/random/boot_id");
  id.pop_back();
  return id;
}

inline runtime::ProcessId this_process() {
  runtime::ProcessFacts facts;
  EXPECT_TRUE(runtime::read_process(::getpid(), facts));
  return facts.id;
}

// The whole text of these lines, as a manager writes it.
inline std::string state_text(const std::string& lines,
                              const runtime::ProcessId& manager = this_process(),
                              const std::string& boot = boot_id()) {
  return "tarvio-state\t1\nboot\t" + boot + "\nmanager\t" + std::to_string(manager.pid) + '\t' +
         std::to_string(manager.start) + "\ndescriptors\t23\t1024\n" + lines + "end\n";
}

// Puts a text in place, as a manager does.
inline void put_state(const std::string& text) {
  std::filesystem::create_directories(runtime::kRunDirectory);
  const std::string unfinished = std::string(runtime::kStatePath) + ".new";
  write_file(unfinished, text);
  std::filesystem::rename(unfinished, runtime::kStatePath);
}

inline void write_state(const std::string& lines) { put_state(state_text(lines)); }

}  // namespace tarvio_test

#endif
