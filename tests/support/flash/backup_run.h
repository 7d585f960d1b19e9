// Saving areas with tools that only make the files that they are asked for.
#ifndef TARVIO_TESTS_SUPPORT_FLASH_BACKUP_RUN_H
#define TARVIO_TESTS_SUPPORT_FLASH_BACKUP_RUN_H

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/flash/flash_device.h"
#include "support/shell_commands.h"
#include "support/string_list.h"
#include "support/work_directory.h"
#include "tarvio/backup.h"

namespace tarvio_test {

inline constexpr char kOnline[] = "console=ttyAMA0 root=/dev/mtdblock4 rw\n";
inline constexpr char kOffline[] = "console=ttyAMA0 root=/dev/mtdblock5 rw\n";

class Backup : public testing::Test {
 protected:
  Backup() { std::filesystem::create_directory(directory_ / "work"); }

  int back_up(const std::vector<const char*>& areas, const char* dest = "image.tbx",
              int archive = 1) {
    StringList list;
    for (const char* area : areas) list.add(area);
    const std::filesystem::path before = std::filesystem::current_path();
    const ShellCommands commands([&](const std::string& line) { return tool(line); });
    const int result = tq_tbx_backup_areas(list.get(), "work", dest, archive);
    EXPECT_EQ(std::filesystem::current_path(), before);
    commands_ = commands.lines();
    return result;
  }

  std::vector<std::string> work_files() const { return names_in(directory_ / "work"); }
  std::string tqcontrol() const { return read_file(directory_ / "work/tqcontrol"); }
  std::string control() const { return read_file(directory_ / "work/control"); }

  const WorkDirectory directory_;
  MountHooks mounts_;
  std::vector<std::string> commands_;
  std::string failing_;  // the beginning of the command lines that fail

 private:
  std::string tool(const std::string& line) const {
    if (!failing_.empty() && line.starts_with(failing_)) return "echo Input/output error";
    const size_t file = line.find("-f ");
    if (file != std::string::npos) return "touch " + line.substr(file + 3);
    if (line.starts_with("tar")) return line;
    return "true";
  }
};

}  // namespace tarvio_test

#endif
