// What the client's backup and restore are made of.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "base/pipe.h"
#include "flash/backup_tracker.h"
#include "flash/flash_record.h"
#include "flash/read_position.h"
#include "packages/ar_archive.h"
#include "support/files.h"
#include "support/work_directory.h"
#include "tarvio/nand.h"
#include "terminal/progress.h"

namespace tarvio_test {
namespace {

using client::FlashRecord;
using testing::ElementsAre;

constexpr tq_flash_event kEvent = {.kind = TQ_FLASH_END,
                                   .step = TQ_FLASH_DUMP,
                                   .code = 5,
                                   .start = 0,
                                   .bytes = 1ULL << 40,
                                   .area = "kernel",
                                   .file = "./uImage",
                                   .device = "/dev/mtd3",
                                   .line = nullptr};

// A member whose size has no place in 31 bits, and one after it. The file is sparse.
TEST(ArchiveFile, FindsWhatComesAfterTwoGiB) {
  constexpr uint64_t kLarge = (uint64_t{3} << 30) + 2;
  constexpr uint64_t kHeader = 60;
  const TempDir directory;
  const std::string path = directory / "image.tbx";
  const auto header = [](const std::string& name, uint64_t size) {
    char text[kHeader + 1];
    (void)std::snprintf(text, sizeof text, "%-16s%-12d%-6d%-6d%-8o%-10llu`\n", name.c_str(), 0, 0,
                        0, 0100644U, static_cast<unsigned long long>(size));
    return std::string(text);
  };
  write_file(path, "!<arch>\n" + header("rootfs.img", kLarge));
  std::filesystem::resize_file(path, 8 + kHeader + kLarge);
  std::ofstream(path, std::ios::app) << header("last", 4) << "end\n";
  const client::ArchiveFile archive(path);
  EXPECT_EQ(archive.find("rootfs.img").bytes, kLarge);
  const auto& last = archive.find("last");
  EXPECT_EQ(last.bytes, 4U);
  EXPECT_EQ(archive.read(last, 0, 100), "end\n");
  EXPECT_EQ(archive.read(archive.find("rootfs.img"), kLarge - 1, 100), std::string(1, '\0'));
}

TEST(FlashRecord, HasWhatTheLibraryReports) {
  const FlashRecord record = client::record_of(kEvent);
  EXPECT_EQ(record.kind, TQ_FLASH_END);
  EXPECT_EQ(record.step, TQ_FLASH_DUMP);
  EXPECT_EQ(record.code, 5);
  EXPECT_EQ(record.bytes, 1ULL << 40);
  EXPECT_STREQ(record.area.data(), "kernel");
  EXPECT_STREQ(record.file.data(), "./uImage");
  EXPECT_STREQ(record.device.data(), "/dev/mtd3");
  EXPECT_STREQ(record.line.data(), "");
}

TEST(FlashRecord, CutsALongLine) {
  const std::string line(1000, 'x');
  tq_flash_event event = kEvent;
  event.line = line.c_str();
  EXPECT_EQ(client::record_of(event).line.data(), line.substr(0, 255));
}

TEST(FlashRecord, IsReadInPieces) {
  std::vector<int32_t> codes;
  client::RecordReader reader([&](const FlashRecord& record) { codes.push_back(record.code); });
  std::string bytes;
  for (int32_t code = 1; code <= 5; ++code) {
    const FlashRecord record = {.code = code};
    bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
  }
  for (size_t at = 0; at < bytes.size(); at += 500) {
    reader.feed(std::string_view(bytes).substr(at, 500));
  }
  EXPECT_THAT(codes, ElementsAre(1, 2, 3, 4, 5));
}

TEST(FlashRecord, NamesTheStepThatFailed) {
  const auto words = [](int32_t step, int32_t code) {
    tq_flash_event event = kEvent;
    event.step = step;
    event.code = code;
    event.line = "No such device";
    return std::string(client::failure_of(client::record_of(event)).what());
  };
  EXPECT_EQ(words(TQ_FLASH_DUMP, EIO), "reading failed: Input/output error");
  EXPECT_EQ(words(TQ_FLASH_CUT, ENOSPC), "cutting the dump failed: No space left on device");
  EXPECT_EQ(words(TQ_FLASH_REBUILD, EIO), "building the image failed: Input/output error");
  EXPECT_EQ(words(TQ_FLASH_REBUILD, -1), "cannot mount /dev/mtd3: No such device");
  EXPECT_EQ(words(TQ_FLASH_PACK, EIO), "packing failed: Input/output error");
  EXPECT_EQ(words(TQ_FLASH_ERASE, EIO), "erasing failed: Input/output error");
  EXPECT_EQ(words(TQ_FLASH_WRITE, EIO), "writing failed: Input/output error");
}

class RecordingFlashObserver : public testing::Test {
 protected:
  // Of an ar or a nandwrite of a file; whether the file is still there.
  bool keeps_file(const char* tool, const std::function<int()>& call) {
    const Tool stand_in(tool, "true");
    write_file(directory_ / "file", "of an area");
    const client::RecordingObserver observer(pipe_.write_end.get());
    EXPECT_EQ(call(), 0);
    return directory_.has("file");
  }

  const WorkDirectory directory_;
  const tarvio::Pipe pipe_;
};

TEST_F(RecordingFlashObserver, WritesARecordOfEachReport) {
  EXPECT_TRUE(keeps_file("flash_eraseall", [] { return tq_erase_flash_all("/dev/mtd9"); }));
  std::vector<int32_t> kinds;
  client::RecordReader reader([&](const FlashRecord& record) { kinds.push_back(record.kind); });
  std::array<char, 4096> bytes;
  const ssize_t count = ::read(pipe_.read_end.get(), bytes.data(), bytes.size());
  reader.feed({bytes.data(), static_cast<size_t>(count)});
  EXPECT_THAT(kinds, ElementsAre(TQ_FLASH_BEGIN, TQ_FLASH_END));
}

TEST_F(RecordingFlashObserver, RemovesAFileThatIsWritten) {
  EXPECT_FALSE(keeps_file("nandwrite", [] { return tq_nandwrite("file", "/dev/mtd9", 0); }));
}

TEST_F(RecordingFlashObserver, KeepsADump) {
  EXPECT_TRUE(keeps_file("nanddump", [] { return tq_nanddump("/dev/mtd9", "file", 0, 0); }));
}

TEST_F(RecordingFlashObserver, StopsWorkThatItCannotReport) {
  const Tool erase("flash_eraseall", "true");
  const int closed = -1;
  const client::RecordingObserver observer(closed);
  EXPECT_EQ(tq_erase_flash_all("/dev/mtd9"), EBADF);
  EXPECT_EQ(erase.runs(), "");
}

TEST(UnreadablePlace, IsReadFromNanddumpsLine) {
  EXPECT_EQ(client::unreadable_place("ECC: 8 uncorrectable bitflip(s) at offset 0x00012000"),
            0x12000U);
}

TEST(UnreadablePlace, IsNotInOtherLines) {
  for (const char* line : {"", "ECC: 2 corrected bitflip(s) at offset 0x00012000",
                           "ECC: 2 uncorrectable bitflip(s) at offset 0x",
                           "a file: 2 uncorrectable bitflip(s) at offset 0x00012000"}) {
    EXPECT_FALSE(client::unreadable_place(line)) << line;
  }
}

TEST(FlashProgress, ShowsBytesPercentRateAndTimeLeft) {
  EXPECT_EQ(client::progress_words(0, 1000, 5), "0 %, 0 bytes of 1000 bytes");
  EXPECT_EQ(client::progress_words(3 << 20, 12 << 20, 2),
            "25 %, 3.0 MiB of 12.0 MiB, 1.5 MiB/s, 6 s left");
  EXPECT_EQ(client::progress_words(3 << 20, 12 << 20, 0), "25 %, 3.0 MiB of 12.0 MiB");
  // A dump is of whole blocks, and may be longer than what is kept.
  EXPECT_EQ(client::progress_words(15, 12, 2), "100 %, 12 bytes of 12 bytes, 6 bytes/s, 0 s left");
  EXPECT_EQ(client::progress_words(0, 0, 2), "0 %, 0 bytes of 0 bytes");
}

TEST(FlashProgress, ShowsTimes) {
  EXPECT_EQ(client::time_words(0), "0 s");
  EXPECT_EQ(client::time_words(0.1), "1 s");
  EXPECT_EQ(client::time_words(59.5), "1 min 00 s");
  EXPECT_EQ(client::time_words(3725), "62 min 05 s");
}

TEST(FlashProgress, FindsHowFarAProcessHasRead) {
  const TempDir directory;
  const std::string path = directory / "file";
  write_file(path, std::string(1000, 'x'));
  EXPECT_EQ(client::read_position(path), 0U);
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(::lseek(file, 700, SEEK_SET), 700);
  EXPECT_EQ(client::read_position(path), 700U);
  ::close(file);
  EXPECT_EQ(client::read_position(directory / "none"), 0U);
}

}  // namespace
}  // namespace tarvio_test
