// The flash devices against the table of areas, and the space that a backup of them takes.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "commands/doctor/finding.h"
#include "flash/area_parts.h"
#include "flash/flash_space.h"
#include "process/failure.h"
#include "process/system_file.h"
#include "process/text_pieces.h"
#include "terminal/words.h"

namespace client {

namespace {

constexpr auto kBlockBytes = static_cast<uint64_t>(tarvio::kEraseBlockBytes);

constexpr char kRemedyForMissingFile[] = "mount devtmpfs on /dev, and load mtdblock";

// What is wrong, and what to do about it.
struct Trouble {
  CheckStatus status = CheckStatus::kOk;
  std::string found;
  std::string remedy;
};

// As the kernel has it; none for what it does not say.
struct Device {
  std::optional<uint64_t> bytes;
  std::optional<uint64_t> block_bytes;
  std::optional<uint64_t> bad_blocks;
};

std::optional<uint64_t> number_in(const std::string& path) {
  const std::string text = read_system_file(path);
  return parse_number<uint64_t>(text.substr(0, text.find('\n')));
}

std::string directory_of_device(const std::string& path) {
  return "/sys/class/mtd" + path.substr(path.rfind('/'));
}

Device device_of(const std::string& path) {
  const std::string directory = directory_of_device(path) + '/';
  return {.bytes = number_in(directory + "size"),
          .block_bytes = number_in(directory + "erasesize"),
          .bad_blocks = number_in(directory + "bad_blocks")};
}

// A part of whole blocks at the beginning is the whole device.
bool is_whole_device(const AreaPart& part) {
  return part.start == 0 && part.largest_bytes % kBlockBytes == 0;
}

std::string size_of(uint64_t bytes) {
  return size_words(bytes) + " (" + std::to_string(bytes) + " bytes)";
}

Trouble judge_size(const AreaPart& part, uint64_t bytes) {
  const uint64_t end = part.start + part.largest_bytes;
  const std::string device = part.device;
  if (bytes == end || (bytes > end && !is_whole_device(part))) return {};
  const std::string remedy =
      "make the partition " + std::string(is_whole_device(part) ? "" : "at least ") + size_of(end);
  if (bytes < end) {
    return {CheckStatus::kFailed,
            device + " has " + size_of(bytes) + ", and the area ends at " + size_of(end), remedy};
  }
  return {CheckStatus::kWarning,
          device + " has " + size_of(bytes) + ", and the area only " + size_of(end) +
              ": a backup leaves the rest out",
          remedy};
}

Trouble judge_bad_blocks(const AreaPart& part, const Device& device) {
  if (!device.bad_blocks) {
    return {CheckStatus::kWarning,
            std::string(part.device) + ": the kernel does not report the number of bad blocks",
            "use a kernel with /sys/class/mtd/mtdN/bad_blocks"};
  }
  const uint64_t bad = *device.bad_blocks * kBlockBytes;
  const uint64_t good = *device.bytes - part.start - std::min(*device.bytes - part.start, bad);
  if (good >= part.backup_bytes) return {};
  return {CheckStatus::kWarning,
          std::string(part.device) + ": bad blocks leave " + size_words(good) + " of the " +
              size_words(part.backup_bytes) + " that a backup keeps",
          "write shorter images only, or replace the flash memory"};
}

// A regular file may stay where a device was written to before its file was made.
Trouble judge_files(const FlashArea& area, const AreaPart& part) {
  for (const std::string path : {part.device, area.source}) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0) {
      return {CheckStatus::kFailed, path + ": " + strerror(errno),
              errno == EACCES ? kRunAsRoot : kRemedyForMissingFile};
    }
    if (!S_ISCHR(status.st_mode) && !S_ISBLK(status.st_mode)) {
      return {CheckStatus::kFailed, path + " is not a device file",
              std::string("remove it, ") + kRemedyForMissingFile};
    }
  }
  return {};
}

// The first of them counts.
Trouble judge(const FlashArea& area, const AreaPart& part, const Device& device) {
  if (!device.bytes || !device.block_bytes) {
    return {CheckStatus::kFailed, "no such partition: " + directory_of_device(part.device),
            "mount /sys, and name the partition in the device tree or in mtdparts="};
  }
  if (Trouble files = judge_files(area, part); files.status != CheckStatus::kOk) return files;
  if (*device.block_bytes != kBlockBytes) {
    return {CheckStatus::kFailed,
            std::string(part.device) + " has erase blocks of " + size_words(*device.block_bytes),
            "use flash memory with erase blocks of " + size_words(kBlockBytes)};
  }
  const Trouble size = judge_size(part, *device.bytes);
  return size.status == CheckStatus::kOk ? judge_bad_blocks(part, device) : size;
}

Finding check_area(const FlashArea& area) {
  Finding finding = {.check = std::string("area ") + area.name, .found = ""};
  for (const AreaPart& part : parts_of(area)) {
    const Device device = device_of(part.device);
    const Trouble trouble = judge(area, part, device);
    if (trouble.status > finding.status) {
      finding.status = trouble.status;
      finding.found = trouble.found;
      finding.remedy = trouble.remedy;
    }
    if (finding.status != CheckStatus::kOk) continue;
    finding.found += (finding.found.empty() ? "" : "; ") + std::string(part.device) + ": " +
                     size_words(*device.bytes) + ", erase blocks of " +
                     size_words(*device.block_bytes) + ", " + std::to_string(*device.bad_blocks) +
                     " of them bad";
  }
  return finding;
}

}  // namespace

Findings check_areas(const Examination& /*examination*/) {
  Findings findings;
  for (const FlashArea& area : tarvio::kFlashAreas) findings.push_back(check_area(area));
  return findings;
}

Findings check_backup_space(const Examination& examination) {
  const bool is_named = !examination.backup_directory.empty();
  const std::string directory = is_named ? examination.backup_directory : ".";
  std::vector<const FlashArea*> areas;
  areas.reserve(tarvio::kFlashAreas.size());
  for (const FlashArea& area : tarvio::kFlashAreas) areas.push_back(&area);
  const BackupBytes bytes = bytes_of_backup(areas);
  try {
    check_space({directory, bytes.work}, {directory, bytes.target});
  } catch (const Failure& failure) {
    return {{.check = "backup space",
             .status = is_named ? CheckStatus::kFailed : CheckStatus::kWarning,
             .found = std::string("for all areas: ") + failure.what(),
             .remedy = is_named ? "name a directory that exists and has more space"
                                : "name the directory of the backups: tarvio doctor DIR"}};
  }
  return {{.check = "backup space",
           .found = "'" + directory + "' has the " + size_words(bytes.work + bytes.target) +
                    " that a backup of all areas may take"}};
}

}  // namespace client
