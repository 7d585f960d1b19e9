#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "base/chain.h"
#include "base/flash_areas.h"
#include "base/owners.h"
#include "tarvio/file.h"
#include "tarvio/nand.h"
#include "tarvio/process.h"
#include "util/log_macros.h"
#include "util/tool_command.h"
#include "util/tq_flash_observer.h"

namespace {

constexpr char kCountFile[] = "countbad";  // in the current directory (oddity 132)
constexpr std::string_view kBadBlocks = "Number of bad blocks:";
constexpr int kSizedAsHibernation = 9;  // a type that no area has (oddity 134)

using tarvio::FlashStep;
using tarvio::FlashWork;
using tarvio::kEraseBlockBytes;
using tarvio::ToolCommand;

ToolCommand erase_command(const char* device, int start, int block) {
  const unsigned offset = static_cast<unsigned>(start) +
                          static_cast<unsigned>(block) * static_cast<unsigned>(kEraseBlockBytes);
  return ToolCommand("flash_erase %s 0x%x 1 2>&1", device, offset);
}

ToolCommand dump_command(const char* device, const char* file, unsigned start) {
  if (start != 0) return ToolCommand("nanddump -b -o %s -s 0x%x -f %s 2>&1", device, start, file);
  return ToolCommand("nanddump -b -o %s -f %s 2>&1", device, file);
}

ToolCommand write_command(const char* file, const char* device, unsigned start) {
  if (start != 0) return ToolCommand("nandwrite %s -s 0x%x %s 2>&1", device, start, file);
  return ToolCommand("nandwrite %s %s 2>&1", device, file);
}

void parse_bad_blocks(const tq_list_t* lines, int* bad_blocks) {
  for (const char* line : tarvio::Elements<char>(lines)) {
    TQ_DEBUG("nanddump parse line :%s", line);
    if (strncmp(line, kBadBlocks.data(), kBadBlocks.size()) != 0) continue;
    (void)sscanf(line, "Number of bad blocks: %d", bad_blocks);
    TQ_DEBUG("bad blocks %d", *bad_blocks);
    return;
  }
}

int count_bad_blocks(const char* device, int* bad_blocks) {
  if (device == nullptr || bad_blocks == nullptr) return EINVAL;
  TQ_DEBUG("tq_nand_count_badblock  %s ", device);
  const ToolCommand command("nanddump -b -o %s -l 131072 -f %s 2>&1", device, kCountFile);
  if (!command.fits()) return tarvio::run_tool(TQ_HERE, command);
  const tarvio::StringList lines(tq_list_create());
  if (lines == nullptr) return ENOMEM;
  const int result = tq_system_command(command.text(), lines.get());
  if (result == 0) parse_bad_blocks(lines.get(), bad_blocks);
  return result;
}

int cut(const char* file, const char* device, unsigned start, unsigned length) {
  TQ_DEBUG("shurink file size to 0x%x", length);  // (oddity 4)
  FlashStep step(TQ_FLASH_CUT, file, device, start, length);
  if (FlashWork::stop() != 0) return FlashWork::stop();
  const int result = truncate(file, length);
  step.end(result == 0 ? 0 : errno);
  return FlashWork::result(result);
}

int area_bytes(int image_type) {
  if (image_type == kSizedAsHibernation) image_type = TQ_IMAGE_HIBERNATION;
  const auto* const area =
      tarvio::find_flash_area([=](const auto& each) { return each.type == image_type; });
  return area == nullptr ? 0 : area->bytes;
}

}  // namespace

int tq_mkfs_jffs2(const char* root_dir, const char* image_file) {
  if (root_dir == nullptr || image_file == nullptr) return EINVAL;
  TQ_DEBUG("tq_mkfs_jffs2 %s->%s ", root_dir, image_file);
  const ToolCommand command(
      "mkfs.jffs2 -x lzo --root=%s --output=%s --pad --little-endian --eraseblock=0x20000 -n 2>&1",
      root_dir, image_file);
  TQ_DEBUG("%s", command.text());
  const int result = tarvio::run_tool(TQ_HERE, command);
  TQ_DEBUG("tq_mkfs_jffs2 result %d ", result);
  return result;
}

int tq_erase_flash(const char* mtd_device, int start, int length) {
  if (mtd_device == nullptr) return EINVAL;
  TQ_DEBUG("tq_erase_flash %s start 0x%x len 0x%x", mtd_device, static_cast<unsigned>(start),
           static_cast<unsigned>(length));
  const int blocks = length / kEraseBlockBytes;  // (oddity 130)
  const ToolCommand longest = erase_command(mtd_device, start, std::max(blocks - 1, 0));
  if (!longest.fits()) return tarvio::run_tool(TQ_HERE, longest);

  FlashStep step(TQ_FLASH_ERASE, nullptr, mtd_device, static_cast<uint32_t>(start),
                 static_cast<uint32_t>(std::max(blocks, 0) * kEraseBlockBytes));
  int total = -1;
  for (int block = 0; block < blocks && FlashWork::stop() == 0; ++block) {
    const int result = tarvio::run_tool(TQ_HERE, erase_command(mtd_device, start, block));
    TQ_DEBUG("tq_erase_flash parial result %d ", total);  // (oddities 4 and 129)
    if (total != 0) total = result;                       // (oddity 128)
  }
  total = step.end(total);
  TQ_DEBUG("tq_erase_flash total result %d ", total);
  return total;
}

int tq_erase_flash_all(const char* mtd_device) {
  if (mtd_device == nullptr) return EINVAL;
  TQ_DEBUG("tq_erase_flash_all %s", mtd_device);
  FlashStep step(TQ_FLASH_ERASE, nullptr, mtd_device);
  const ToolCommand command("flash_eraseall %s 2>&1", mtd_device);
  const int result = step.end(tarvio::run_tool(TQ_HERE, command));
  TQ_DEBUG("tq_erase_flash_all result %d ", result);
  return result;
}

int tq_nandwrite(const char* image_file, const char* mtd_device, unsigned start) {
  if (image_file == nullptr || mtd_device == nullptr) return EINVAL;
  TQ_DEBUG("tq_nandwrite %s->%s ", image_file, mtd_device);
  FlashStep step(TQ_FLASH_WRITE, image_file, mtd_device, start, FlashStep::kOfFile);
  const ToolCommand command = write_command(image_file, mtd_device, start);
  const int result = step.end(tarvio::run_tool(TQ_HERE, command));
  TQ_DEBUG("tq_nandwrite result %d ", result);
  return result;
}

int tq_nanddump(const char* mtd_device, const char* out_file, unsigned start, unsigned length) {
  if (mtd_device == nullptr || out_file == nullptr) return EINVAL;
  TQ_DEBUG("tq_nanddump %s->%s : st =0x%x  len =0x%x", mtd_device, out_file, start, length);
  const FlashWork work;
  const ToolCommand command = dump_command(mtd_device, out_file, start);
  FlashStep step(TQ_FLASH_DUMP, out_file, mtd_device, start, length);
  const int result = step.end(tarvio::run_tool(TQ_HERE, command));
  TQ_DEBUG("tq_nanddump result %d ", result);
  if (length == 0 || !command.fits() || FlashWork::stop() != 0) return result;
  return cut(out_file, mtd_device, start, length);  // in place of that result (oddity 131)
}

int tq_nand_count_badblock(const char* mtd_device, int* bad_blocks) {
  const int result = count_bad_blocks(mtd_device, bad_blocks);
  (void)unlink(kCountFile);  // on every return
  return result;
}

int tq_nand_get_writable_len(const char* image_file, int image_type, int bad_blocks,
                             int* writable_len) {
  if (image_file == nullptr || writable_len == nullptr) return EINVAL;
  uint32_t file_bytes = 0;
  if (tq_get_file_length(image_file, &file_bytes) != 0) {
    const int error = errno;
    TQ_ERROR("Can't read file size %s", image_file);
    return error;
  }
  // Two numbers are missing in these texts (oddity 133).
  TQ_DEBUG("flash write file size=");
  const int length = area_bytes(image_type);
  TQ_DEBUG("flash area length %d , bad blocks  ", length);
  const auto writable =
      static_cast<int>(static_cast<unsigned>(length) -
                       static_cast<unsigned>(bad_blocks) * static_cast<unsigned>(kEraseBlockBytes));
  *writable_len =
      writable >= static_cast<int64_t>(file_bytes) ? static_cast<int>(file_bytes) : writable;
  TQ_DEBUG("final flash writable length %d ", *writable_len);
  return 0;
}
