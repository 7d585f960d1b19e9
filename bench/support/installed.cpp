#include "support/installed.h"

#include <filesystem>
#include <fstream>

#include "support/say.h"

namespace tarvio_bench {
namespace {

namespace fs = std::filesystem;

void write_file(const fs::path& path, const std::string& text) {
  std::ofstream file(path);
  if (!(file << text << std::flush)) die("cannot write " + path.string());
}

std::string control_text(const std::string& name) {
  return "Package: " + name +
         "\n"
         "Version: 1.0.2-r3\n"
         "Depends: libc6 (>= 2.3.6), libtarvio1\n"
         "Section: base\n"
         "Architecture: armv5te\n"
         "Maintainer: Halvern Corporation\n"
         "MD5Sum: 0cc175b9c0f1b6a831c399e269772661\n"
         "Size: 48210\n"
         "Filename: " +
         name +
         "_1.0.2-r3_armv5te.ipk\n"
         "Source: feed\n"
         "Description: Shows the time on the panel\n"
         " and wakes the other applications up.\n";
}

}  // namespace

std::string package_name(int number) { return text_of("clock-%04d", number); }

const char* const kSleeper = BENCH_SLEEPER;

void install_applications(int count, const char* program) {
  const fs::path directory = kInfoDirectory;
  // Only the sandbox has this directory, and has it empty.
  if (!fs::is_directory(directory) || !fs::is_empty(directory))
    die(directory.string() + " is not an empty directory: run this inside sandbox-enter");
  for (int number = 0; number < count; ++number) {
    const std::string name = package_name(number);
    write_file(directory / (name + ".control"), control_text(name));
    write_file(directory / (name + ".tqcontrol"),
               "TqPackageCategory: Application\nTqPackageSubCategory: Application_Native\n");
    write_file(directory / (name + ".list"), "/usr/bin/" + name + "\n");
    const fs::path start_file = directory / (name + ".tqstartapp");
    write_file(start_file, text_of("#!%s\n", program));
    fs::permissions(start_file, fs::perms::owner_exec, fs::perm_options::add);
  }
}

void watch_a_log() {
  write_file("/var/log/messages", "");
  fs::create_directories("/etc/tarvio");
  write_file("/etc/tarvio/tarviod.conf", "hook.clock: " + package_name(0) + "\n");
}

}  // namespace tarvio_bench
