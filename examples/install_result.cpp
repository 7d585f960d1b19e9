// Installs a package file and says what became of it: install_result FILE.tbx
//
// opkg fails in more ways than it has a known message for, and the code is 0 then. So what counts
// is whether the version of the file is installed afterwards.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include <tarvio/tarvio.h>
#include <tarvio/tarvio.hpp>

namespace fs = std::filesystem;

namespace {

// A directory of our own as the current one: the archive tools unpack there.
class WorkDirectory {
 public:
  explicit WorkDirectory(std::error_code& error) : before_(fs::current_path(error)) {
    if (error) return;
    std::string name = fs::temp_directory_path(error) / "install_result.XXXXXX";
    if (error) return;
    if (mkdtemp(name.data()) == nullptr) {
      error.assign(errno, std::generic_category());
      return;
    }
    path_ = name;
    fs::current_path(path_, error);
  }
  ~WorkDirectory() {
    std::error_code ignored;
    fs::current_path(before_, ignored);
    if (!path_.empty()) fs::remove_all(path_, ignored);
  }
  WorkDirectory(const WorkDirectory&) = delete;
  WorkDirectory& operator=(const WorkDirectory&) = delete;

 private:
  const fs::path before_;
  fs::path path_;
};

struct Identity {
  std::string name;
  std::string version;
};

struct CloseConf {
  void operator()(tq_conf* conf) const { tq_conf_close(conf); }
};

// What the package file says that it is; none when it is not a package. The error is that of the
// work directory.
std::optional<Identity> identify(const fs::path& file, std::error_code& error) {
  const WorkDirectory work_directory(error);
  if (error) return std::nullopt;
  if (tq_extract_from_ar(file.c_str(), "control.tar.gz") != 0) return std::nullopt;
  if (tq_extract_from_tgz("control.tar.gz", "./control") != 0) return std::nullopt;
  const std::unique_ptr<tq_conf, CloseConf> control(tq_conf_open("control"));
  const Identity found = {tq_conf_read(control.get(), "Package"),
                          tq_conf_read(control.get(), "Version")};
  if (found.name.empty()) return std::nullopt;
  return found;
}

bool is_installed(const Identity& wanted) {
  std::error_code error;
  const std::optional<tarvio::Package> package = tarvio::find_package(wanted.name, error);
  return package && package->version == wanted.version;
}

int fail(const char* file, const std::string& cause) {
  std::fprintf(stderr, "cannot install '%s': %s\n", file, cause.c_str());
  return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FILE.tbx\n", argv[0]);
    return EXIT_FAILURE;
  }
  const char* const file = argv[1];
  std::error_code error;
  const fs::path path = fs::canonical(file, error);
  if (error) return fail(file, error.message());
  const std::optional<Identity> package = identify(path, error);
  if (error) return fail(file, "no directory to unpack it in: " + error.message());
  if (!package) return fail(file, "not a package file");

  error = tarvio::install_package(path);
  if (error) return fail(file, error.message());
  if (!is_installed(*package)) return fail(file, "opkg reported no error, but did not install it");
  std::printf("installed %s %s\n", package->name.c_str(), package->version.c_str());

  // The manager knows the application from now on. Without one, the next one reads what is
  // installed.
  error = tarvio::Manager().refresh();
  if (error && error != std::errc::not_connected) return fail(file, error.message());
  return EXIT_SUCCESS;
}
