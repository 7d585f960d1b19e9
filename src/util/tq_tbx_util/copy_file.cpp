#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/sendfile.h>

#include "base/owners.h"
#include "tarvio/tbx.h"
#include "util/log_macros.h"

namespace {

constexpr char kCopyFile[] = "tq_copy_file";
constexpr size_t kPieceSize = 1024;
constexpr size_t kKernelPiece = 1 << 20;

// Null with errno set when the file cannot be opened.
tarvio::File open_file(const char* path, const char* mode) {
  tarvio::File file(fopen(path, mode));
  if (file == nullptr) {
    TQ_DEBUG("%s: [%s] open error - errno=%d, %s ", kCopyFile, path, errno, strerror(errno));
  }
  return file;
}

// Lets the kernel copy what it can, which takes less time. Whatever is left, for whatever reason,
// is up to the loop that follows, so that one place decides between success and failure.
void copy_in_kernel(FILE* source, FILE* destination) {
  while (sendfile(fileno(destination), fileno(source), nullptr, kKernelPiece) > 0) {
  }
}

}  // namespace

int tq_copy_file(const char* src, const char* dst) {
  if (src == nullptr || dst == nullptr) return EINVAL;
  const tarvio::File source = open_file(src, "rbe");
  if (source == nullptr) return errno;
  const tarvio::File destination = open_file(dst, "wbe");
  if (destination == nullptr) return errno;

  copy_in_kernel(source.get(), destination.get());
  char piece[kPieceSize];
  // A read error ends the copy as the end of the file does (oddity 55), and an error that shows
  // only when the copy is closed is lost (oddity 56).
  while (const size_t read = fread_unlocked(piece, 1, sizeof piece, source.get())) {
    const size_t written = fwrite_unlocked(piece, 1, read, destination.get());
    if (written != read) {
      TQ_DEBUG("%s: [%s] write error - R/W=%d/%d ", kCopyFile, dst, static_cast<int>(read),
               static_cast<int>(written));
      return -1;
    }
  }
  return 0;
}
