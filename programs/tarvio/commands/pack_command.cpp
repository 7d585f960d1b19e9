// tarvio pack: a package file from a directory.
#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "base/owners.h"
#include "base/pipe.h"
#include "commands/arguments.h"
#include "commands/commands.h"
#include "commands/signatures/key_options.h"
#include "packages/package_directory.h"
#include "packages/package_file.h"
#include "process/child.h"
#include "process/failure.h"
#include "process/paths.h"
#include "process/required_tools.h"
#include "signatures/package_signature.h"
#include "terminal/outcome.h"
#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace client {

namespace {

constexpr Option kOutput = {
    .name = "output",
    .letter = 'o',
    .value = "FILE",
    .offer = Offer::kPackageFiles,
    .help = "the package file; an existing one is replaced, with its signature",
    .is_required = true};
constexpr Option kSign = {.name = "sign",
                          .value = "KEY",
                          .offer = Offer::kFiles,
                          .help = "also write FILE.minisig, the signature by this secret key"};
constexpr std::array kOptions = {kOutput, kSign, kPasswordFile};

constexpr char kArchive[] = "package.tbx";
constexpr char kFormatVersion[] = "2.0\n";

using Words = std::vector<std::string>;

struct Request {
  std::string directory;
  std::string output;
  std::string key_file;  // empty: without a signature
  PasswordFile password_file;
  double timeout_seconds;
  Progress::Kind progress;
};

struct PackedFile {
  std::string name;
  std::string version;
  uint64_t size_bytes = 0;
  std::string key_id;  // empty without a signature
};

Request request_in(const Arguments& arguments) {
  Request request = {.directory = arguments.operands.front(),
                     .output = *arguments.value_of(kOutput),
                     .key_file = arguments.has(kSign) ? *arguments.value_of(kSign) : "",
                     .password_file = password_file_in(arguments),
                     .timeout_seconds = arguments.timeout_seconds,
                     .progress = progress_in(arguments)};
  if (!is_package_file_name(request.output)) {
    throw UsageError("'" + request.output + "': package file names must end in .tbx");
  }
  if (arguments.has(kPasswordFile) && !arguments.has(kSign)) {
    throw UsageError("option '--password-file' needs '--sign'");
  }
  return request;
}

// The same directory gives the same bytes: whatever tar would take from the machine is fixed. (Some
// tools treat timestamp 0 as unset.)
Words tar_words() {
  return {"tar",       "--create",  "--format=gnu",   "--sort=name", "--mtime=@946684800",
          "--owner=0", "--group=0", "--numeric-owner"};
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
    if (!file.valid() || !tarvio::write_all(file.get(), kFormatVersion)) {
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
    execute(directory_, Rights::of_caller(), words, seconds_, [](std::string_view) {});
  }

  const WorkDirectory& directory_;
  double seconds_;
};

void check_outside(const std::string& output, const std::string& directory) {
  const tarvio::CString target(realpath(directory_of(output).c_str(), nullptr));
  if (target == nullptr) throw Failure::of_system("cannot write '" + output + "'");
  if ((std::string(target.get()) + "/").starts_with(directory + "/")) {
    throw Failure(EINVAL, "the output file '" + output + "' must not be inside the directory");
  }
}

void sign(const WorkDirectory& directory, const Request& request, const SecretKey& key,
          PackedFile& packed) {
  Progress progress(request.progress);
  progress.begin(request.output);
  const Signature signature =
      sign_package(directory, directory / kArchive, key,
                   {.name = packed.name, .version = packed.version, .kind = {}},
                   request.timeout_seconds, progress);
  packed.key_id = text_of(key.id());
  packed.size_bytes = put_in_place(directory / kArchive, request.output);
  // In between, the old signature does not match the new file, so nobody takes them for good. The
  // file comes first so that a failure leaves both as they were.
  write_signature(request.output, signature);
}

void pack(const Request& request, PackedFile& packed) {
  require_tools({"ar", "tar", "gzip"});
  const PackageDirectory package = check_package_directory(request.directory);
  check_outside(request.output, package.path);
  const std::unique_ptr<SecretKey> key =
      request.key_file.empty() ? nullptr : open_secret_key(request.key_file, request.password_file);
  const WorkDirectory directory(directory_of(request.output) + "/.tarvio.");
  Packer(directory, request.timeout_seconds).pack(package);
  packed.name = package.name;
  packed.version = package.version;
  if (key != nullptr) return sign(directory, request, *key, packed);
  packed.size_bytes = put_in_place(directory / kArchive, request.output);
  remove_signature(request.output);
}

Result run(const Arguments& arguments) {
  const Request request = request_in(arguments);
  PackedFile packed;
  const Outcome outcome = attempt("pack", request.directory, [&] { pack(request, packed); });
  Json json = json_of("directory", outcome);
  if (outcome.code != 0) return {.status = outcome.status, .json = text_of(json)};
  json.update({{"file", request.output},
               {"name", packed.name},
               {"version", packed.version},
               {"size_bytes", packed.size_bytes}});
  if (!packed.key_id.empty()) {
    json.update({{"signature", signature_path(request.output)}, {"key_id", packed.key_id}});
  }
  return {.text = printable("packed " + packed.name + " " + packed.version + " into " +
                            request.output + ", " + size_words(packed.size_bytes) +
                            (packed.key_id.empty() ? "" : ", signed with key " + packed.key_id)) +
                  '\n',
          .json = text_of(json)};
}

}  // namespace

const Command kPackCommand = {
    .word = "pack",
    .operands = {.name = "DIR",
                 .min = 1,
                 .max = 1,
                 .missing = "the directory DIR",
                 .offer = Offer::kDirectories},
    .options = kOptions,
    .timeout = kToolsTimeout,
    .summary = "build a package file from a directory",
    .description =
        "Builds a package file, whose name ends in .tbx, from a directory that holds\n"
        "\n"
        "  control     the keys of opkg: Package, Version, Maintainer, Architecture ...\n"
        "  tqcontrol   TqPackageCategory, TqPackageSubCategory, TqDataTarget\n"
        "  tqstartapp, tqstopapp\n"
        "              programs that start and stop the application (optional)\n"
        "  preinst, postinst, prerm, postrm, conffiles\n"
        "              for opkg (optional)\n"
        "  data/       the files to install, laid out as below / (optional)\n"
        "\n"
        "The same directory always gives the same bytes.",
    .statuses = kToolsStatuses,
    .run = run,
};

}  // namespace client
