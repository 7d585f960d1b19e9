#include "orphan.h"

#include <fcntl.h>

#include <cstdint>
#include <cstdio>

#include "base/owners.h"
#include "base/pipe.h"
#include "process/system_file.h"
#include "process/text_pieces.h"
#include "runtime/process_id.h"

namespace agent {

namespace {

std::string file_in(const std::string& directory) { return directory + "/working"; }

std::string boot() {
  runtime::BootId id = {};
  return runtime::read_boot_id(id) ? id.text : "?";
}

}  // namespace

void write_working(const std::string& directory, pid_t process) {
  runtime::ProcessFacts facts;
  if (!runtime::read_process(process, facts)) return;
  const std::string text =
      std::to_string(facts.id.pid) + ' ' + std::to_string(facts.id.start) + ' ' + boot() + '\n';
  const tarvio::Fd fd(
      open(file_in(directory).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  // Without it, only an agent that is killed now does not wait for the program.
  if (fd.valid()) (void)tarvio::write_all(fd.get(), text);
}

void remove_working(const std::string& directory) { (void)std::remove(file_in(directory).c_str()); }

bool has_orphan(const std::string& directory) {
  const std::string text = client::read_system_file(file_in(directory));
  std::string_view words = text;
  const auto pid = client::parse_number<pid_t>(client::take_word(words));
  const auto start = client::parse_number<uint64_t>(client::take_word(words));
  return pid && start && client::take_word(words) == boot() &&
         runtime::is_alive({.pid = *pid, .start = *start});
}

}  // namespace agent
