#include <errno.h>
#include <stdlib.h>
#include <sys/mount.h>

#include "base/offline_root.h"
#include "tarvio/archive.h"
#include "tarvio/backup.h"
#include "tarvio/nand.h"
#include "util/log_macros.h"
#include "util/tq_flash_observer.h"

namespace {

using tarvio::FlashStep;
using tarvio::FlashWork;

constexpr char kDataArchive[] = "data.tar.gz";

int report_failed_jffs2(const char* device, const char* image_file, int code) {
  TQ_ERROR("backup jffs2 image error %s->%s", device, image_file);
  return code;
}

// The device comes first, unlike in the other messages.
int report_failed_restore(const char* image_file, const char* device, int code) {
  TQ_ERROR("tq_restore_flash_image error %s ->%s", device, image_file);
  return code;
}

}  // namespace

int tq_backup_jffs2(const char* device, const char* image_file) {
  if (device == nullptr || image_file == nullptr) return EINVAL;
  TQ_DEBUG(" backup jffs2 image %s -> %s", device, image_file);
  FlashStep step(TQ_FLASH_REBUILD, image_file, device);
  if (FlashWork::stop() != 0) return FlashWork::stop();
  TQ_DEBUG("mount dev %s -> %s", device, tarvio::kOfflineRoot);
  const int mounted = mount(device, tarvio::kOfflineRoot, "jffs2", MS_NOEXEC, nullptr);
  if (mounted != 0) {
    TQ_ERROR("mount failed %d", mounted);
    return report_failed_jffs2(device, image_file, step.end(mounted));
  }
  const int built = tq_mkfs_jffs2(tarvio::kOfflineRoot, image_file);
  if (built != 0) {
    // Twice, and with the device left mounted (oddity 144).
    (void)report_failed_jffs2(device, image_file, built);
    return report_failed_jffs2(device, image_file, step.end(built));
  }
  TQ_DEBUG("umount %s", tarvio::kOfflineRoot);
  (void)umount(tarvio::kOfflineRoot);
  return step.end(0);
}

int tq_backup_flash_image(const char* device, const char* image_file, unsigned start,
                          unsigned length) {
  if (device == nullptr || image_file == nullptr) return EINVAL;
  TQ_DEBUG("tq backup flash image %s -> %s", device, image_file);
  const int result = tq_nanddump(device, image_file, start, length);
  if (result != 0) TQ_ERROR("backup flash image %s error", device);
  return result;
}

int tq_restore_flash_image(const char* image_file, const char* device, int start, int length) {
  if (image_file == nullptr || device == nullptr) return EINVAL;
  TQ_DEBUG("tq_restore flash image %s->%s start 0x%x len 0x%x", image_file, device,
           static_cast<unsigned>(start), static_cast<unsigned>(length));
  const FlashWork work;
  const int erased =  // (oddity 153)
      start != 0 ? tq_erase_flash(device, start, length) : tq_erase_flash_all(device);
  if (erased != 0) {
    TQ_ERROR("erase flash error %d", erased);
    return report_failed_restore(image_file, device, erased);
  }
  const int written = tq_nandwrite(image_file, device, static_cast<unsigned>(start));
  return written == 0 ? 0 : report_failed_restore(image_file, device, written);
}

int tq_create_image_data_tgz(const char* source, const char* image_file, int block_size,
                             int length) {
  if (source == nullptr || image_file == nullptr) return EINVAL;
  // Else all of the source is copied, which may be more than the length (oddity 156).
  const lldiv_t blocks = block_size == 0 ? lldiv_t{} : lldiv(length, block_size);
  const int copied = blocks.quot != 0 && blocks.rem == 0
                         ? tq_dd(source, image_file, block_size, static_cast<int>(blocks.quot))
                         : tq_dd(source, image_file, 0, 0);
  if (copied != 0) return copied;
  return tq_archive_tgz(kDataArchive, 1, &image_file);
}
