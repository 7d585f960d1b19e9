#include "support/programs/tarvio.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

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

WithoutPackages::WithoutPackages() {
  std::filesystem::remove_all(kInformation);
  std::filesystem::create_directories(kInformation);
}

}  // namespace tarvio_test
