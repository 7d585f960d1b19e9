// The commands that work on packages.
#include <filesystem>
#include <string>
#include <vector>

#include "faults/campaign.h"
#include "faults/device.h"
#include "support/files.h"

namespace faults {

namespace {

namespace fs = std::filesystem;
using tarvio_test::write_file;
using tarvio_test::write_program;

const std::string kWork = kWorkDirectory;

void copy_package(const std::string& name) {
  fs::copy_file(TARVIO_TEST_DATA "/opkg/packages/" + name + ".ipk", kWork + "/" + name + ".tbx");
}

}  // namespace

void prepare_package_files() {
  clear_device();
  for (const char* name : {"app-1.0", "app-2.0"}) copy_package(name);
}

void save_packages() {
  prepare_package_files();
  shell("opkg install " TARVIO_TEST_DATA
        "/opkg/packages/app-1.0.ipk && opkg install " TARVIO_TEST_DATA
        "/opkg/packages/lib-1.0.ipk");
  save_installed("packages");
}

void prepare_installed_packages() {
  prepare_package_files();
  load_installed("packages");
}

namespace {

void prepare_source() {
  clear_device();
  fs::create_directories(kWork + "/clock/data/opt/clock");
  write_file(kWork + "/clock/control",
             "Package: clock\nVersion: 1.0\nArchitecture: all\nMaintainer: Halvern\n");
  write_file(kWork + "/clock/tqcontrol",
             "TqPackageCategory: Application\nTqPackageSubCategory: Application_Native\n");
  write_program(kWork + "/clock/tqstartapp", "#!/bin/sh\n");
  write_file(kWork + "/clock/data/opt/clock/face", "12\n");
  fs::create_directory(kWork + "/built");
}

const std::string kKeys = TARVIO_TEST_DATA "/minisign/";

// Signed, on a device that demands that.
void prepare_signed_package() {
  prepare_package_files();
  fs::copy_file(kKeys + "app-1.0.tbx.minisig", kWork + "/app-1.0.tbx.minisig");
  fs::create_directories("/etc/tarvio/keys");
  fs::copy_file(kKeys + "plain.pub", "/etc/tarvio/keys/plain.pub");
  write_file("/etc/tarvio/tarvio.conf", "require_signature: all\n");
}

// The bytes of a new key are random.
std::string names_of_keys() {
  std::string names;
  for (const char* name : {"new.key", "new.pub"}) {
    const fs::path path = kWork + "/" + name;
    names +=
        std::string(name) + (fs::exists(path) && fs::file_size(path) > 100 ? " is there\n" : "\n");
  }
  return names;
}

Subject key_subject(Subject subject) {
  subject.state = names_of_keys;
  subject.said = [](const std::string& output) { return output.substr(0, 9); };
  return subject;
}

Subject subject(const std::string& name, const std::vector<std::string>& words, void (*prepare)()) {
  return {.name = name,
          .program = client(words),
          .set_up = save_packages,
          .prepare = prepare,
          .state = state_of_device};
}

}  // namespace

std::vector<Subject> package_subjects() {
  Subject mistake = subject("mistake", {"status", "--bogus"}, clear_device);
  mistake.status = 64;
  return {
      subject("help", {"--help"}, clear_device),
      mistake,
      subject("list", {"list"}, prepare_installed_packages),
      subject("list-json", {"list", "--json"}, prepare_installed_packages),
      subject("install", {"install", "app-1.0.tbx"}, prepare_package_files),
      subject("upgrade", {"install", "app-2.0.tbx"}, prepare_installed_packages),
      subject("remove", {"remove", "app"}, prepare_installed_packages),
      subject("files", {"files", "app"}, prepare_installed_packages),
      subject("inspect", {"inspect", "app-1.0.tbx"}, prepare_package_files),
      subject("inspect-json", {"inspect", "--json", "app-1.0.tbx"}, prepare_package_files),
      subject("check", {"check", "app-1.0.tbx"}, prepare_package_files),
      subject("pack", {"pack", "clock", "-o", "built/clock.tbx"}, prepare_source),
      subject("pack-sign",
              {"pack", "clock", "-o", "built/clock.tbx", "--sign", kKeys + "plain.key"},
              prepare_source),
      key_subject(subject("keygen", {"keygen", "new", "--no-password"}, clear_device)),
      subject("sign", {"sign", "app-1.0.tbx", "--key", kKeys + "plain.key"}, prepare_package_files),
      subject("verify", {"verify", "app-1.0.tbx"}, prepare_signed_package),
      subject("install-signed", {"install", "app-1.0.tbx"}, prepare_signed_package),
  };
}

}  // namespace faults
