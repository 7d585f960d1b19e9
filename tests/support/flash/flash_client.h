// The client at work on the flash of the device. It runs in a process of its own out of the test's
// program: there the library mounts what stands in for the file systems.
#ifndef TARVIO_TESTS_SUPPORT_FLASH_FLASH_CLIENT_H
#define TARVIO_TESTS_SUPPORT_FLASH_FLASH_CLIENT_H

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "program.h"
#include "support/children.h"
#include "support/files.h"
#include "support/flash/flash_device.h"
#include "support/work_directory.h"

namespace tarvio_test {

struct FlashRun {
  int status = -1;  // exit status; -1 when a signal ended it
  std::string output;
  std::string errors;
};

class FlashClient : public testing::Test {
 protected:
  FlashClient() {
    device_.make_area("/dev/mtd1", 2, "boot loader ");
    device_.make_area("/dev/mtd2", 16, "boot settings ", {5});
    device_.make_area("/dev/mtd3", 16, "kernel ", {4});
    device_.make_area("/dev/mtd4", 4, "root file system ", {1});
    device_.make_area("/dev/mtd5", 4, "writable ", {0, 2});
    write_file("/dev/mtdblock4.tree/root", "of the root file system\n");
    write_file("/dev/mtdblock5.tree/data", std::string(200000, 'd'));
    write_kernel_command_line("console=ttyAMA0\n");
  }

  // In a process of its own; standard output and standard error are the files beside.
  pid_t start(const std::vector<std::string>& arguments,
              const std::function<void()>& prepare) const {
    const Redirect output(STDOUT_FILENO, reports_ / "output");
    const Redirect errors(STDERR_FILENO, reports_ / "errors");
    const pid_t client = ::fork();
    if (client != 0) return client;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    prepare();
    std::vector<const char*> argv = {"tarvio"};
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    ::_exit(client::run_program(static_cast<int>(argv.size()), argv.data()));
  }

  FlashRun run(
      const std::vector<std::string>& arguments,
      const std::function<void()>& prepare = [] {}) const {
    for (const char* report : {"output", "errors"}) write_file(reports_ / report, "");
    const int status = exit_status_of(start(arguments, prepare));
    return {status, read_file(reports_ / "output"), read_file(reports_ / "errors")};
  }

  // To image.tbx, with further arguments.
  FlashRun back_up(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"backup", "--to", "image.tbx"});
    return run(arguments);
  }
  // Of image.tbx, without a question.
  FlashRun restore(std::vector<std::string> arguments = {}) const {
    arguments.insert(arguments.begin(), {"restore", "image.tbx", "--yes"});
    return run(arguments);
  }

  void wipe(const std::string& device) const { directory_.shell("flash_eraseall " + device); }

  // Keeps what the good blocks of an area hold from a place on, as a file of this name beside.
  void keep(const std::string& name, const std::string& device, size_t start,
            uintmax_t bytes) const {
    const std::string file = kept_ / name;
    directory_.shell("nanddump -b -o " + device + " -s " + std::to_string(start) + " -f " + file +
                     " 2>&1 && truncate -s " + std::to_string(bytes) + " " + file);
  }
  // Whether they hold just the bytes of such a file.
  void expect_holds(const std::string& device, size_t start, const std::string& name) const {
    keep("now", device, start, std::filesystem::file_size(kept_ / name));
    directory_.shell("cmp " + (kept_ / "now").string() + " " + (kept_ / name).string());
  }
  // In its good blocks.
  bool is_erased(const std::string& device) const {
    directory_.shell("nanddump -b -o " + device + " -f " + (kept_ / "now").string() + " 2>&1");
    return read_file(kept_ / "now").find_first_not_of('\377') == std::string::npos;
  }

  void expect_only(const std::vector<std::string>& names) const {
    EXPECT_EQ(directory_.names(), names);
    EXPECT_FALSE(is_mounted(kOfflineRoot));
  }

  const TempDir reports_;
  const TempDir kept_;
  const WorkDirectory directory_;
  const FlashDevice device_;
  MountHooks mounts_;
};

// A tool that works as it should but in its n-th run, from 1, where it does something else first.
inline std::string in_run(int n, const std::string& tool, const std::string& instead) {
  return "if [ $(wc -l <\"${0%/*}/arguments\") = " + std::to_string(n) + " ]; then " + instead +
         "; fi\nPATH=${PATH#*:}\nexec " + tool + " \"$@\"";
}

}  // namespace tarvio_test

#endif
