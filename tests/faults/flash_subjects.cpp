// The commands that work on the flash memory: files for its devices, stand-ins for its tools, and
// directories that the module mounts as its file systems.
#include <sys/mount.h>

#include <filesystem>
#include <string>
#include <vector>

#include "faults/campaign.h"
#include "faults/device.h"
#include "support/files.h"

namespace faults {

namespace {

namespace fs = std::filesystem;
using tarvio_test::read_file;
using tarvio_test::write_file;

constexpr size_t kBlock = 0x20000;
constexpr char kImage[] = "/run/faults/saved/image.tbx";
constexpr char kExtracted[] = "/run/faults/extracted";

struct Area {
  const char* device;
  size_t blocks;
  const char* text;
  const char* bad;
};

constexpr Area kAreas[] = {{"/dev/mtd1", 2, "boot loader ", ""},
                           {"/dev/mtd2", 16, "boot settings ", "5\n"},
                           {"/dev/mtd3", 17, "kernel ", "4\n"},
                           {"/dev/mtd4", 4, "root file system ", "1\n"}};

void make_area(const Area& area, const std::string& text) {
  std::string bytes = text;
  while (bytes.size() < area.blocks * kBlock) bytes += bytes;
  bytes.resize(area.blocks * kBlock);
  write_file(area.device, bytes);
  write_file(std::string(area.device) + ".bad", area.bad);
}

}  // namespace

void prepare_flash() {
  clear_device();
  for (const Area& area : kAreas) make_area(area, area.text);
}

namespace {

void prepare_erased() {
  clear_device();
  for (const Area& area : kAreas) make_area(area, "\377");
  fs::copy_file(kImage, std::string(kWorkDirectory) + "/image.tbx");
}

void set_up() {
  fs::create_directories("/dev/mtdblock4.tree");
  write_file("/dev/mtdblock4.tree/root", "of the root file system\n");
  prepare_flash();
  fs::create_directories("/run/faults/saved");
  // For the restores, of areas that need no mount.
  shell(TARVIO_CLIENT " backup kernel bootsetting bootloader --to image.tbx && mv image.tbx " +
        std::string(kImage));
}

std::string mounts() {
  const bool is_mounted = read_file("/proc/self/mounts").find(" /mnt/root ") != std::string::npos;
  while (umount("/mnt/root") == 0) {
  }
  return is_mounted ? "mounted\n" : "";
}

std::string state_of_devices() {
  std::string state = mounts();
  for (const Area& area : kAreas) state += tree_of(area.device);
  return state + tree_of(kWorkDirectory);
}

// What the image holds; the archives themselves differ in their times.
std::string state_of_image() {
  clear(kExtracted);
  shell("[ ! -e image.tbx ] || { cd " + std::string(kExtracted) + " && ar x " + kWorkDirectory +
        "/image.tbx && tar xzf control.tar.gz && rm control.tar.gz; }");
  std::string state = mounts() + tree_of(kExtracted);
  for (const auto& entry : fs::directory_iterator(kWorkDirectory)) {
    state += entry.path().string() + '\n';
  }
  return state;
}

// The times before it differ, and the size after it.
std::string conclusion(const std::string& output) {
  const size_t start = output.rfind('\n', output.size() - 2) + 1;
  return output.substr(start, output.find(".tbx", start) - start);
}

Subject subject(const std::string& name, const std::vector<std::string>& words, void (*prepare)(),
                std::string (*state)()) {
  return {.name = name,
          .program = client(words),
          .set_up = set_up,
          .prepare = prepare,
          .state = state,
          .said = conclusion};
}

}  // namespace

std::vector<Subject> flash_subjects() {
  return {
      subject("areas", {"areas"}, prepare_flash, state_of_devices),
      subject("areas-json", {"areas", "--json"}, prepare_flash, state_of_devices),
      subject("backup", {"backup", "bootloader", "kernel", "--to", "image.tbx"}, prepare_flash,
              state_of_image),
      subject("backup-verify", {"backup", "kernel", "--verify", "--to", "image.tbx"}, prepare_flash,
              state_of_image),
      subject("backup-rootfs", {"backup", "rootfs", "--to", "image.tbx"}, prepare_flash,
              state_of_image),
      subject("restore", {"restore", "image.tbx", "--yes"}, prepare_erased, state_of_devices),
  };
}

}  // namespace faults
