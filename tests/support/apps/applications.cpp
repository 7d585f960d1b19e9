#include "support/apps/applications.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <system_error>

#include "support/children.h"
#include "support/files.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

constexpr char kStart[] = R"(
echo $$ >$process.new
mv $process.new $process
exec sleep 600
)";

// A stop may come right after its start.
constexpr char kStop[] = R"(
until [ -e $process ]; do sleep 0.01; done
kill $(cat $process)
: >$stopped
)";

// The files that an application's scripts leave.
fs::path trace_of(const std::string& application, const std::string& kind) {
  return fs::temp_directory_path() / (application + "." + kind);
}

}  // namespace

fs::path information_file(const std::string& package, const std::string& extension) {
  return fs::path("/usr/lib/opkg/info") / (package + extension);
}

void install_package(const std::string& name, const std::string& category) {
  write_file(information_file(name, ".control"),
             "Package: " + name + "\nVersion: 1.0\nMaintainer: Halvern\n");
  write_file(information_file(name, ".tqcontrol"),
             "TqPackageCategory: " + category + "\nTqPackageSubCategory: Application_Native\n");
}

void install_application(const std::string& name) {
  install_package(name, "Application");
  const std::string head = "#!/bin/sh\nprocess=" + trace_of(name, "process").string() +
                           "\nstopped=" + trace_of(name, "stopped").string() + "\n";
  write_program(information_file(name, ".tqstartapp"), head + kStart);
  write_program(information_file(name, ".tqstopapp"), head + kStop);
}

void slow_the_stop_of(const std::string& application) {
  const fs::path file = information_file(application, ".tqstopapp");
  write_program(file, read_file(file) + "sleep 1\n");
}

pid_t process_of(const std::string& application) {
  const fs::path trace = trace_of(application, "process");
  if (eventually([&] { return fs::exists(trace); })) return std::stoi(read_file(trace));
  ADD_FAILURE() << application << " does not run";
  return -1;
}

void forget_process_of(const std::string& application) {
  fs::remove(trace_of(application, "process"));
}

void replace_start_file_by_program(const std::string& application) {
  write_program(information_file(application, ".tqstartapp"), "#!/usr/bin/tail -f\n");
}

std::vector<pid_t> children_of(pid_t manager) {
  std::vector<pid_t> children;
  std::error_code ended;  // it may end meanwhile
  fs::directory_iterator thread("/proc/" + std::to_string(manager) + "/task", ended);
  for (; !ended && thread != fs::directory_iterator(); thread.increment(ended)) {
    std::ifstream list(thread->path() / "children");
    for (pid_t child; list >> child;) children.push_back(child);
  }
  return children;
}

pid_t keeper_of(pid_t manager) {
  for (const pid_t child : children_of(manager)) {
    if (read_file("/proc/" + std::to_string(child) + "/comm") == "tarviod-keeper\n") return child;
  }
  return -1;
}

pid_t keeper_process() {
  std::ifstream ledger("/run/tarvio/processes");
  std::string word;
  pid_t process = -1;
  if (!(ledger >> word >> word >> word >> process)) ADD_FAILURE() << "the ledger names no keeper";
  return process;
}

static bool has_variable(const fs::path& process, const std::string& wanted) {
  std::ifstream file(process / "environ");
  for (std::string variable; std::getline(file, variable, '\0');)
    if (variable == wanted) return true;
  return false;
}

std::vector<pid_t> processes_of(const std::string& application) {
  std::vector<pid_t> processes;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const pid_t process = std::atoi(entry.path().filename().c_str());
    if (process > 0 && has_variable(entry.path(), "TARVIO_APPLICATION=" + application))
      processes.push_back(process);
  }
  return processes;
}

uint64_t signals_of(pid_t process, const std::string& set) {
  const std::string status = read_file("/proc/" + std::to_string(process) + "/status");
  const size_t found = status.find(set + ":");
  if (found == std::string::npos) {
    ADD_FAILURE() << "no " << set << " of process " << process;
    return 0;
  }
  return std::stoull(status.substr(found + set.size() + 1), nullptr, 16);
}

bool is_alive(pid_t process) { return ::kill(process, 0) == 0 || errno != ESRCH; }

bool ends(pid_t process) {
  return eventually([process] { return !is_alive(process); });
}

bool was_stopped(const std::string& application) {
  return fs::exists(trace_of(application, "stopped"));
}

}  // namespace tarvio_test
