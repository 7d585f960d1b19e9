#include "opkg/real_opkg.h"

#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/wait.h>

#include <array>
#include <cstdlib>
#include <filesystem>

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

constexpr char kPackageDirectory[] = "/run/packages";

void mount_private(const char* directory, const char* options = "mode=0755") {
  fs::create_directories(directory);
  ASSERT_EQ(::mount("tmpfs", directory, "tmpfs", MS_NOSUID | MS_NODEV, options), 0) << directory;
}

// For a file system whose flags a user namespace may add to, but not take away.
void make_root_read_only() {
  struct statvfs status = {};
  ASSERT_EQ(::statvfs("/", &status), 0);
  unsigned long flags = MS_REMOUNT | MS_BIND | MS_RDONLY;
  constexpr std::array<std::pair<unsigned long, unsigned long>, 6> kKept = {
      {{ST_NOSUID, MS_NOSUID},
       {ST_NODEV, MS_NODEV},
       {ST_NOEXEC, MS_NOEXEC},
       {ST_NOATIME, MS_NOATIME},
       {ST_NODIRATIME, MS_NODIRATIME},
       {ST_RELATIME, MS_RELATIME}}};
  for (const auto& [is_set, flag] : kKept) {
    if ((status.f_flag & is_set) != 0) flags |= flag;
  }
  ASSERT_EQ(::mount(nullptr, "/", nullptr, flags, nullptr), 0);
}

// Why there is no such program; empty when it runs.
std::string reason_to_skip(const std::string& version, const std::string& tools) {
  const char* const directory = std::getenv("TARVIO_OPKG_DIR");
  if (directory == nullptr || *directory == '\0') return "TARVIO_OPKG_DIR is not set";
  const fs::path program = fs::path(directory) / ("opkg-" + version);
  if (!fs::exists(program)) return "there is no " + program.string();
  fs::create_symlink(fs::absolute(program), tools + "/opkg");
  const int status = std::system((tools + "/opkg --version >/dev/null 2>&1").c_str());
  return WEXITSTATUS(status) < 126
             ? ""
             : program.string() + " does not run here; is libarchive13 installed?";
}

void install_program(const std::string& version, const std::string& program) {
  const std::string preload = version == kOpkg018 ? "LD_PRELOAD=" TARVIO_KEEP_FREED " " : "";
  write_program("/run/tools/opkg", "#!/bin/sh\n" + preload + "exec " + program + " \"$@\"\n");
}

void configure(const std::string& version, const std::string& root) {
  std::string text = "dest root /\narch all 1\narch noarch 1\n";
  if (version != kOpkg018) {
    text +=
        "option info_dir /usr/lib/opkg/info\noption status_file /usr/lib/opkg/status\n"
        "option lists_dir /usr/lib/opkg/lists\n";
  }
  fs::create_directories(root + "/etc/opkg");
  write_file(root + "/etc/opkg/opkg.conf", text);
}

}  // namespace

void RealOpkg::SetUp() {
  // It mounts, which must not reach the host.
  if (std::getenv("TARVIO_TEST_CMDLINE") == nullptr) FAIL() << "runs in the sandbox only";
  const TempDir tools;
  const std::string reason = reason_to_skip(GetParam(), tools.path());
  if (!reason.empty()) GTEST_SKIP() << reason;
  fs::create_directories("/run/alternatives");
  if (fs::is_directory("/etc/alternatives") && !fs::is_symlink("/etc/alternatives")) {
    ASSERT_EQ(::mount("/etc/alternatives", "/run/alternatives", nullptr, MS_BIND, nullptr), 0);
  }
  for (const char* directory :
       {"/etc", "/var/lib", "/var/cache", "/usr/lib/opkg", "/opt", "/mnt/root", "/run/tools"}) {
    mount_private(directory);
  }
  // Through these, some tools of the host are found.
  fs::create_directory_symlink("/run/alternatives", "/etc/alternatives");
  make_root_read_only();
  install_program(GetParam(), fs::read_symlink(tools / "opkg"));
  ::setenv("PATH", (std::string("/run/tools:") + std::getenv("PATH")).c_str(), 1);
  fs::create_directories(kInformation);
  fs::create_directories("/mnt/root/usr/lib/opkg/info");
  configure(GetParam(), "");
  configure(GetParam(), "/mnt/root");
  write_kernel_command_line("root=/dev/mtdblock4\n");
}

std::string RealOpkg::package(const std::string& name, const std::string& version,
                              const std::string& further) {
  const fs::path work = fs::path(kPackageDirectory) / (name + "-" + version);
  const fs::path data = work / "data/opt" / name;
  fs::remove_all(work);
  fs::create_directories(data);
  write_file(data / version, version + "\n");
  write_file(data / "common", name + "\n");
  write_file(work / "control", "Package: " + name + "\nVersion: " + version +
                                   "\nArchitecture: all\nMaintainer: Halvern\n" + further);
  write_file(work / "tqcontrol", kSampleTqControl);
  write_program(work / "tqstartapp", "#!/bin/sh\n");
  write_file(work / "debian-binary", "2.0\n");
  return pack(work);
}

std::string RealOpkg::pack(const fs::path& directory) {
  shell(directory,
        "rm -f package.tbx"
        "; tar czf control.tar.gz $(find . -maxdepth 1 -type f ! -name '*-*' ! -name '*.*')"
        "; tar czf data.tar.gz -C data ."
        "; ar rc package.tbx debian-binary control.tar.gz data.tar.gz");
  return directory / "package.tbx";
}

std::string RealOpkg::clashing_package() {
  const fs::path directory = fs::path(package("other", "1.0")).parent_path();
  fs::create_directories(directory / "data/opt/app");
  write_file(directory / "data/opt/app/common", "of other\n");
  return pack(directory);
}

std::string RealOpkg::foreign_package() {
  const fs::path directory = fs::path(package("app", "1.0")).parent_path();
  shell(directory, "sed -i 's/all/armv5te/' control");
  return pack(directory);
}

std::string RealOpkg::large_package() {
  const fs::path directory = fs::path(package("app", "1.0")).parent_path();
  shell(directory, "head -c 3000000 /dev/urandom >data/opt/app/blob");
  return pack(directory);
}

void RealOpkg::offer(const std::vector<std::string>& files) {
  const fs::path feed = fs::path(kPackageDirectory) / "feed";
  fs::create_directories(feed);
  for (const std::string& file : files) {
    const std::string name = fs::path(file).parent_path().filename();
    fs::copy_file(file, feed / (name + ".ipk"));
    shell(feed, "{ sed '/^$/d' " + fs::path(file).replace_filename("control").string() +
                    "; echo Filename: " + name + ".ipk; echo Size: $(stat -c %s " + name +
                    ".ipk); echo MD5Sum: $(md5sum <" + name +
                    ".ipk | cut -c 1-32); echo; } >>list");
  }
  fs::create_directories("/usr/lib/opkg/lists");
  fs::copy_file(feed / "list", "/usr/lib/opkg/lists/feed");
  const std::string configuration = "/etc/opkg/opkg.conf";
  write_file(configuration, read_file(configuration) + "src feed file://" + feed.string() + "\n");
}

std::string RealOpkg::installed_version(const std::string& name, const std::string& root) {
  const fs::path control = root + std::string(kInformation) + "/" + name + ".control";
  if (!fs::exists(control)) return "";
  const std::string text = read_file(control);
  const size_t at = text.find("Version: ") + 9;
  return text.substr(at, text.find('\n', at) - at);
}

bool RealOpkg::has_trace(const std::string& name) {
  for (const auto& entry : fs::directory_iterator(kInformation)) {
    if (entry.path().filename().string().starts_with(name + ".")) return true;
  }
  const fs::path status = "/usr/lib/opkg/status";
  const bool is_known =
      fs::exists(status) && read_file(status).find("Package: " + name + "\n") != std::string::npos;
  return is_known || fs::exists("/opt/" + name);
}

}  // namespace tarvio_test
