#include "packages/package_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>
#include <vector>

#include "base/line_cutter.h"
#include "base/owners.h"
#include "packages/ar_archive.h"
#include "packages/control_fields.h"
#include "process/failure.h"
#include "process/paths.h"
#include "process/required_tools.h"
#include "process/text_pieces.h"
#include "tarvio/archive.h"
#include "tarvio/conf.h"
#include "tarvio/package.h"
#include "tarvio/tbx.h"
#include "terminal/words.h"

namespace client {

namespace {

// The library passes names to the shell, so the file gets a plain one.
constexpr char kLink[] = "package.tbx";
constexpr std::string_view kExtension = ".tbx";
constexpr char kControlArchive[] = "./control.tar.gz";
constexpr char kControl[] = "./control";
constexpr char kTqControl[] = "./tqcontrol";

// Control files are a few lines: what a hostile archive may write is bounded.
constexpr uint64_t kMaxBytes = 16UL << 20;

enum class Found { kNothing, kRegularFile, kOther };

Found look_for(const char* path) {
  struct stat status = {};
  if (lstat(path, &status) != 0) return Found::kNothing;
  return S_ISREG(status.st_mode) ? Found::kRegularFile : Found::kOther;
}

void check_regular(const char* path) {
  if (look_for(path) == Found::kOther) {
    throw Failure(EINVAL, std::string("its ") + (path + 2) + " is not a regular file");
  }
}

void check_extracted(int code, const char* archive) {
  if (code != 0) {
    throw Failure(code, std::string("cannot unpack ") + archive + ": " + result_words(code));
  }
}

// A mode may keep even the owner from reading a file, and modes do not change here: the bytes come
// from the archive again. Those of a second member of the name would follow them.
void make_readable(const char* file) {
  constexpr char kCopy[] = "readable";
  const tarvio::Fd unpacked(open(file, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (unpacked.valid() || errno != EACCES) return;
  const std::string command = std::string("exec tar -xzOf control.tar.gz ") + file + " >" + kCopy;
  tarvio::Stream tar(popen(command.c_str(), "re"));
  if (tar == nullptr || pclose(tar.release()) != 0 || size_of_file(kCopy) != size_of_file(file) ||
      rename(kCopy, file) != 0) {
    throw Failure(EACCES, std::string("cannot read its ") + (file + 2) + ": its mode forbids it");
  }
}

// What it turns out to be says more than that tar could not unpack it.
void unpack_control_file(const char* file) {
  const int code = tq_extract_from_tgz(kControlArchive, file);
  check_regular(file);
  check_extracted(code, "its control.tar.gz");
  make_readable(file);
}

// tar unpacks all that lies in a directory of the name that it looks for. A damaged archive, with
// which gzip ends in one of its own ways, is left to it.
void check_unpacked_bytes() {
  constexpr int kWarning = 2;
  tarvio::Stream content(popen("exec gzip -dc control.tar.gz 2>/dev/null", "re"));
  if (content == nullptr) throw Failure::of_system("cannot run gzip");
  std::array<char, 16384> piece;
  size_t bytes = 0;
  while (const size_t count = fread(piece.data(), 1, piece.size(), content.get())) {
    bytes += count;
    if (bytes > kMaxBytes) {
      throw Failure(EFBIG, "its control.tar.gz unpacks to more than " + size_words(kMaxBytes));
    }
  }
  if (ferror(content.get()) != 0) throw Failure::of_system("cannot read what gzip unpacks");
  const int status = pclose(content.release());
  if (!WIFEXITED(status) || WEXITSTATUS(status) > kWarning) {
    throw Failure(EIO, "gzip failed, so the size of its control.tar.gz is not known");
  }
}

std::string kind_lines() {
  const std::string tqcontrol = read_control_text(kTqControl).value_or("");
  if (tqcontrol.find(':') == std::string::npos) {
    throw Failure(EINVAL, "its tqcontrol has no keys");
  }
  std::string lines = value_in(tqcontrol, "TqPackageCategory") + '\n' +
                      value_in(tqcontrol, "TqPackageSubCategory") + '\n';
  for (std::string_view rest = tqcontrol; !rest.empty();) {
    const std::string_view line = tarvio::take_line(rest);
    if (line.starts_with("TqDataTarget:")) lines += target_in(line) + '\n';
  }
  return lines;
}

int32_t code_of_category(const std::string& category) {
  if (category == kImageCategory) return TQ_CATEGORY_IMAGE;
  return category == kApplicationCategory ? TQ_CATEGORY_APPLICATION : TQ_CATEGORY_OTHER;
}

// An image may have no version: a backup does not know that of a system without a package of its
// own.
void check_identity(const PackageFile& package) {
  if (!package.name.empty() && (package.is_image() || !package.version.empty())) return;
  throw Failure(
      EINVAL, "its control.tar.gz has no package name or version: damaged, or not a package file");
}

// In the work directory, in a process of its own. The result is a line each: name, version and,
// when there is a tqcontrol, category, subcategory and targets.
std::string read_control_files(const std::string& path) {
  if (symlink(path.c_str(), kLink) != 0) throw Failure::of_system("cannot make a link");
  check_extracted(tq_extract_from_ar(kLink, kControlArchive), "it");
  check_regular(kControlArchive);
  if (look_for(kControlArchive) == Found::kNothing) {
    throw Failure(EINVAL, "it has no control.tar.gz: damaged, or not a package file");
  }
  check_unpacked_bytes();
  unpack_control_file(kControl);
  const std::string control = read_control_text(kControl).value_or("");
  const std::string name = value_in(control, "Package");
  const std::string version = value_in(control, "Version");
  unpack_control_file(kTqControl);
  const bool has_kind = look_for(kTqControl) == Found::kRegularFile;
  return name + '\n' + version + '\n' + (has_kind ? kind_lines() : "");
}

}  // namespace

std::string title_of(const PackageFile& package) {
  return package.version.empty() ? package.name : package.name + ' ' + package.version;
}

bool is_package_file_name(std::string_view path) {
  const std::string_view name = path.substr(path.rfind('/') + 1);
  return name.size() > kExtension.size() && name.ends_with(kExtension);
}

RegularFile open_regular_file(const std::string& path) {
  tarvio::Fd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!file.valid() || fstat(file.get(), &status) != 0) throw Failure(errno, strerror(errno));
  if (!S_ISREG(status.st_mode)) throw Failure(EINVAL, "not a regular file");
  return {std::move(file), static_cast<uint64_t>(status.st_size)};
}

std::string readable_file(const std::string& path) {
  (void)open_regular_file(path);
  const tarvio::CString absolute(realpath(path.c_str(), nullptr));
  if (absolute == nullptr) throw Failure(errno, strerror(errno));
  return absolute.get();
}

PackageFile read_package_file(const WorkDirectory& directory, const std::string& absolute_path,
                              double seconds) {
  require_tools({"ar", "tar", "gzip"});
  const std::vector<std::string> lines =
      lines_of(run_job(
                   directory, Rights::to_read(absolute_path, kMaxBytes), "ar or tar",
                   [&] { return read_control_files(absolute_path); }, seconds)
                   .result);
  PackageFile package = {.name = lines.at(0), .version = lines.at(1), .kind = std::nullopt};
  if (lines.size() > 2) {
    package.kind = PackageKind{.category = lines.at(2),
                               .category_code = code_of_category(lines.at(2)),
                               .subcategory = lines.at(3),
                               .subcategory_code = tq_tbx_conv_package_subtype(lines.at(3).c_str()),
                               .targets = {lines.begin() + 4, lines.end()}};
  }
  if (package.name.empty() || package.version.empty() || !package.kind) {
    directory.check_space_left();
  }
  check_identity(package);
  return package;
}

void check_archives(const WorkDirectory& directory, const std::string& absolute_path,
                    double seconds, const Sink& control_listing, const Sink& data_listing) {
  const Rights rights = Rights::to_read(absolute_path, 0);
  const auto read = [&](const char* archive, const std::vector<std::string>& words,
                        const Sink& sink) {
    try {
      execute(directory, rights, words, seconds, sink);
    } catch (const Failure& failure) {
      const bool is_of_system = failure.code() == ENOSPC || failure.code() == ENOMEM;
      if (failure.status() != kFailed || is_of_system) throw;
      throw Failure(EINVAL,
                    std::string("cannot read its ") + archive + " to the end: " + failure.what());
    }
  };
  read("control.tar.gz", {"tar", "-tvz", "--numeric-owner", "-f", "control.tar.gz"},
       control_listing);
  read("data.tar.gz",
       {"sh", "-c", "ar p \"$0\" data.tar.gz | tar -tvz --numeric-owner -f -", absolute_path},
       data_listing);
  // Where there are several to choose from, opkg may take others than the tools here.
  ArchiveFile(absolute_path).check_only({"debian-binary", "control.tar.gz", "data.tar.gz"});
}

std::string target_in(std::string_view line) {
  return std::string(trimmed(line.substr(std::min(line.size(), line.find(':') + 1))));
}

}  // namespace client
