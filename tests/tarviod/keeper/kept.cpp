#include "kept.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "keeper/keeper.h"
#include "runtime/run_paths.h"
#include "support/children.h"

namespace tarvio_test {

namespace fs = std::filesystem;
using tarviod::AppSetup;
using tarviod::Ask;
using tarviod::KeeperFound;
using tarviod::KeeperLink;
using tarviod::KeeperReply;
using tarviod::KeeperRequest;
using tarviod::KeptApp;
using tarviod::KeptState;

tarvio::Deadline patience() { return tarvio::Deadline::after(static_cast<int>(kPatience.count())); }

void set_text(char* text, const std::string& value) { std::strcpy(text, value.c_str()); }

int ask(KeeperLink& link, Ask ask, const std::string& application, const AppSetup& setup) {
  KeeperRequest request = tarviod::request_for(ask);
  request.setup = setup;
  set_text(request.name, application);
  KeeperReply reply;
  return link.ask(request, reply, patience()) ? reply.code : -1;
}

std::vector<KeptApp> applications(KeeperLink& link) {
  KeeperReply reply;
  if (!link.ask(tarviod::request_for(Ask::kApplications), reply, patience())) {
    ADD_FAILURE() << "the keeper is gone: " << std::strerror(errno);
    return {};
  }
  std::vector<KeptApp> found(static_cast<size_t>(reply.count));
  for (KeptApp& app : found) EXPECT_TRUE(link.next(app, patience()));
  return found;
}

int descriptor_count(pid_t process) {
  const fs::directory_iterator list("/proc/" + std::to_string(process) + "/fd");
  return static_cast<int>(std::distance(begin(list), end(list)));
}

static bool is_of_an_application(const fs::path& process) {
  std::ifstream file(process / "environ");
  for (std::string variable; std::getline(file, variable, '\0');)
    if (variable.starts_with("TARVIO_APPLICATION=")) return true;
  return false;
}

bool any_application_runs() {
  const fs::directory_iterator processes("/proc");
  return std::any_of(begin(processes), end(processes), is_of_an_application);
}

std::string status_line(pid_t process, const std::string& key) {
  std::ifstream file("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(file, line);)
    if (line.starts_with(key + ":")) return line;
  return "";
}

void Kept::SetUp() { ASSERT_EQ(link_.open(), KeeperFound::kStarted) << std::strerror(errno); }

void Kept::TearDown() {
  if (link_.open() != KeeperFound::kNone) (void)ask(link_, Ask::kEnd);
}

std::string Kept::script(const std::string& name, const std::string& body) const {
  const fs::path path = directory_ / name;
  write_program(path, "#!/bin/sh\ncd " + directory_.path().string() + "\n" + body + "\n");
  return path;
}

AppSetup Kept::setup(const std::string& start, const std::string& stop) const {
  static int files = 0;
  const std::string number = std::to_string(++files);
  AppSetup setup = {};
  set_text(setup.start_file, script("start" + number, start));
  if (!stop.empty()) set_text(setup.stop_file, script("stop" + number, stop));
  set_text(setup.output, "inherit");
  setup.stop_timeout_ms = 10'000;
  setup.starts = 1;
  return setup;
}

KeptApp Kept::app(const std::string& application) {
  for (const KeptApp& app : applications(link_))
    if (application == app.name) return app;
  ADD_FAILURE() << "the keeper does not know " << application;
  return {};
}

bool Kept::becomes(const std::string& application, KeptState state) {
  return eventually([&] { return app(application).state == state; });
}

bool Kept::has(const std::string& file) const { return fs::exists(directory_ / file); }

pid_t Kept::process_in(const std::string& file) const {
  const fs::path path = directory_ / file;
  if (eventually([&] { return fs::exists(path) && read_file(path).ends_with('\n'); }))
    return std::stoi(read_file(path));
  ADD_FAILURE() << "nobody writes " << path;
  return -1;
}

}  // namespace tarvio_test

// The manager executes itself to be the keeper, and here this program is the manager.
int main(int argc, char** argv) {
  if (std::strcmp(argv[0], tarviod::kKeeperName) == 0) {
    ::execv(TARVIOD, argv);
    return 126;
  }
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
