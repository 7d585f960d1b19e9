#include "managed.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "runtime/run_paths.h"
#include "support/apps/applications.h"
#include "support/children.h"
#include "support/com/sockets.h"
#include "tarvio/com.h"

namespace tarvio_test {

namespace fs = std::filesystem;

PublishedApp published(const std::string& application) {
  std::ifstream file(runtime::kStatePath);
  for (std::string line; std::getline(file, line);) {
    std::istringstream fields(line);
    std::vector<std::string> all;
    for (std::string field; std::getline(fields, field, '\t');) all.push_back(field);
    if (all.size() == 9 && all[0] == "app" && all[1] == application)
      return {all[2], std::stoi(all[3]), std::stoi(all[5]), all[6], all[7], all[8]};
  }
  return {};
}

bool becomes(const std::string& application, const std::string& state) {
  return eventually([&] { return published(application).state == state; });
}

void install(const std::string& name, const std::string& start, const std::string& stop) {
  install_package(name, "Application");
  write_program(information_file(name, ".tqstartapp"), "#!/bin/sh\n" + start + "\n");
  if (!stop.empty())
    write_program(information_file(name, ".tqstopapp"), "#!/bin/sh\n" + stop + "\n");
}

void upgrade(const std::string& name, const std::string& version) {
  write_file(information_file(name, ".control"),
             "Package: " + name + "\nVersion: " + version + "\nMaintainer: Halvern\n");
}

void uninstall(const std::string& name) {
  for (const char* extension : {".control", ".tqcontrol", ".tqstartapp", ".tqstopapp"})
    fs::remove(information_file(name, extension));
}

void configure(const std::string& name, const std::string& text) {
  fs::create_directories("/etc/tarvio/apps.d");
  write_file("/etc/tarvio/apps.d/" + name + ".conf", text);
}

void Managed::TearDown() {
  if (!fs::exists(runtime::kLedgerPath)) return;
  const pid_t keeper = keeper_process();
  if (manager_ != nullptr && !manager_->has_ended()) kill_manager();
  ::kill(keeper, SIGTERM);
  EXPECT_TRUE(ends(keeper));
  fs::remove_all(runtime::kRunDirectory);
}

void Managed::start_manager(const std::vector<std::string>& arguments,
                            const std::function<void()>& prepare) {
  manager_ = std::make_unique<Tarviod>(arguments, prepare);
  ASSERT_TRUE(manager_->answers());
}

void Managed::kill_manager() {
  manager_->send(SIGKILL);
  EXPECT_EQ(manager_->end(), -1);
}

void Managed::kill_keeper() {
  const pid_t keeper = keeper_process();
  ::kill(keeper, SIGKILL);
  EXPECT_TRUE(ends(keeper));
}

std::string Managed::request(const std::string& lines) { return ask(TQ_COM_SOCKET_PATH, lines); }

Socket Managed::send_request(const std::string& lines) {
  Socket client = connect_to(TQ_COM_SOCKET_PATH);
  client.send(lines);
  client.end_sending();
  return client;
}

pid_t Managed::only_process_of(const std::string& name) {
  std::vector<pid_t> processes;
  const bool is_one = eventually([&] {
    processes = processes_of(name);
    return processes.size() == 1;
  });
  EXPECT_TRUE(is_one) << name << ": " << testing::PrintToString(processes);
  return is_one ? processes[0] : -1;
}

bool Managed::says(const std::string& name, const std::string& status) {
  return eventually([&] { return status_of(name) == status; });
}

}  // namespace tarvio_test
