#include "support/programs/tarvio.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <utility>

#include "support/children.h"
#include "support/files.h"
#include "support/packages/package_listing.h"

namespace tarvio_test {
namespace {

[[noreturn]] void run(const std::vector<std::string>& arguments,
                      const std::function<void()>& prepare) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  prepare();
  std::vector<char*> argv = {const_cast<char*>("tarvio")};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  ::execv(TARVIO_CLIENT, argv.data());
  ::_exit(126);
}

}  // namespace

Ran run_tarvio(const std::vector<std::string>& arguments, const std::function<void()>& prepare) {
  const TempDir directory;
  pid_t client = -1;
  {
    const Redirect output(STDOUT_FILENO, directory / "output");
    const Redirect errors(STDERR_FILENO, directory / "errors");
    client = ::fork();
    if (client == 0) run(arguments, prepare);
  }
  const int status = exit_status_of(client);
  return {status, read_file(directory / "output"), read_file(directory / "errors")};
}

std::vector<std::string> complaints_without_opkg(const std::string& file) {
  std::vector<std::string> complaints;
  for (const auto& [command, operand] :
       {std::pair{"install", file}, {"remove", "clock"}, {"files", "clock"}}) {
    const Ran run = run_tarvio({command, operand});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    const std::string named = "'" + operand + "': ";
    const size_t at = run.errors.find(named);
    EXPECT_NE(at, std::string::npos) << run.errors;
    complaints.push_back(at == std::string::npos ? "" : run.errors.substr(at + named.size()));
  }
  return complaints;
}

WithoutPackages::WithoutPackages() {
  std::filesystem::remove_all(kInformation);
  std::filesystem::create_directories(kInformation);
}

}  // namespace tarvio_test
