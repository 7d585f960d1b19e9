#include "commands/pack_command.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "base/owners.h"
#include "packages/package_directory.h"
#include "process/child.h"
#include "process/failure.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

constexpr char kArchive[] = "package.tbx";
constexpr char kFormatVersion[] = "2.0\n";

using Words = std::vector<std::string>;

// The same directory gives the same bytes: what tar takes from the machine is fixed. (Of the epoch
// itself tools think that it is no time.)
Words tar_words() {
  return {"tar",       "--create",  "--format=gnu",   "--sort=name", "--mtime=@946684800",
          "--owner=0", "--group=0", "--numeric-owner"};
}

std::string directory_of(const std::string& file) {
  const size_t slash = file.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : file.substr(0, slash);
}

class Packer {
 public:
  Packer(const WorkDirectory& directory, double seconds)
      : directory_(directory), seconds_(seconds) {}

  void pack(const PackageDirectory& package) const {
    write_format_version();
    Words control_files = {"--mode=go-w"};
    for (const std::string& name : package.control_files) control_files.push_back("./" + name);
    make_archive("control.tar", package.path, control_files);
    make_archive("data.tar", package.has_data ? package.path + "/data" : empty_directory(), {"."});
    run({"ar", "rcD", kArchive, "debian-binary", "control.tar.gz", "data.tar.gz"});
  }

 private:
  void write_format_version() const {
    const tarvio::Fd file(
        open((directory_ / "debian-binary").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    if (!file.valid() || !write_all(file.get(), kFormatVersion)) {
      throw Failure::of_system("cannot write in the work directory");
    }
  }

  [[nodiscard]] std::string empty_directory() const {
    std::string path = directory_ / "data";
    if (mkdir(path.c_str(), 0755) != 0 || chmod(path.c_str(), 0755) != 0) {
      throw Failure::of_system("cannot write in the work directory");
    }
    return path;
  }

  void make_archive(const std::string& name, const std::string& source, const Words& files) const {
    Words words = tar_words();
    words.insert(words.end(), {"--file=" + name, "--directory=" + source});
    words.insert(words.end(), files.begin(), files.end());
    run(words);
    run({"gzip", "-9", "-n", name});
  }

  void run(const Words& words) const {
    run_tool(directory_, words, seconds_, [](std::string_view) {});
  }

  const WorkDirectory& directory_;
  double seconds_;
};

// A reader sees the old file or the whole new one, even when the power fails.
void put_in_place(const std::string& from, const std::string& to) {
  const tarvio::Fd file(open(from.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.valid() || fsync(file.get()) != 0 || rename(from.c_str(), to.c_str()) != 0) {
    throw Failure::of_system("cannot write '" + to + "'");
  }
}

void check_outside(const std::string& output, const std::string& directory) {
  const tarvio::CString target(realpath(directory_of(output).c_str(), nullptr));
  if (target == nullptr) throw Failure::of_system("cannot write '" + output + "'");
  if ((std::string(target.get()) + "/").starts_with(directory + "/")) {
    throw Failure(EINVAL, "'" + output + "' would lie in it");
  }
}

uint64_t size_of(const std::string& file) {
  struct stat status = {};
  return stat(file.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

void pack(const Options& options, PackedFile& packed) {
  const PackageDirectory package = check_package_directory(options.operands.front());
  check_outside(options.output, package.path);
  const WorkDirectory directory(directory_of(options.output) + "/.tarvio.");
  Packer(directory, options.timeout_seconds).pack(package);
  packed.size_bytes = size_of(directory / kArchive);
  put_in_place(directory / kArchive, options.output);
  packed.name = package.name;
  packed.version = package.version;
}

std::string line_of(const PackedFile& packed) {
  return printable("packed " + packed.name + " " + packed.version + " into " + packed.file + ", " +
                   size_words(packed.size_bytes)) +
         '\n';
}

}  // namespace

int run_pack(const Options& options) {
  PackedFile packed;
  packed.file = options.output;
  packed.outcome = attempt("pack", options.operands.front(), [&] { pack(options, packed); });
  bool is_written = true;
  if (options.json) {
    is_written = print(packed_json(packed));
  } else if (packed.outcome.code == 0) {
    is_written = print(line_of(packed));
  }
  return is_written ? packed.outcome.status : kFailed;
}

}  // namespace client
