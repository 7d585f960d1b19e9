// Installed applications: files in opkg's information directory, shell scripts that run, and the
// state of their processes.
#ifndef TARVIO_TESTS_SUPPORT_APPS_APPLICATIONS_H
#define TARVIO_TESTS_SUPPORT_APPS_APPLICATIONS_H

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tarvio_test {

// The file that an installed package has in the information directory.
std::filesystem::path information_file(const std::string& package, const std::string& extension);

void install_package(const std::string& name, const std::string& category);

// An application whose start file leaves its process id and goes on as a program that stays, and
// whose stop file ends that program and leaves a mark.
void install_application(const std::string& name);

// The stop file takes a second more, after its mark.
void slow_the_stop_of(const std::string& application);

// Waits for the application's process. -1, and the test fails, when it does not come.
pid_t process_of(const std::string& application);
// After a stop, so that process_of waits for the next one.
void forget_process_of(const std::string& application);
// A start file that is a program instead of a script, and runs until a signal.
void replace_start_file_by_program(const std::string& application);
// The processes that one has started and that run.
std::vector<pid_t> children_of(pid_t process);

// The keeper that a manager has started; -1 when there is none.
pid_t keeper_of(pid_t manager);
// The keeper that runs, from its ledger.
pid_t keeper_process();
// The processes that have the name of this application in their environment.
std::vector<pid_t> processes_of(const std::string& application);

// A set of signals of a process, from /proc: SigBlk, SigIgn or SigCgt.
uint64_t signals_of(pid_t process, const std::string& set);

bool is_alive(pid_t process);
// Waits for the end of a process that need not be a child of the test.
bool ends(pid_t process);

// Whether the stop file has run.
bool was_stopped(const std::string& application);

}  // namespace tarvio_test

#endif
