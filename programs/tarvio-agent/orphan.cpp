#include "orphan.h"

#include <cstdio>
#include <fstream>

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
  std::ofstream(file_in(directory))
      << facts.id.pid << ' ' << facts.id.start << ' ' << boot() << '\n';
}

void remove_working(const std::string& directory) { (void)std::remove(file_in(directory).c_str()); }

bool has_orphan(const std::string& directory) {
  std::ifstream file(file_in(directory));
  runtime::ProcessId process;
  std::string boot_then;
  return file >> process.pid >> process.start >> boot_then && boot_then == boot() &&
         runtime::is_alive(process);
}

}  // namespace agent
