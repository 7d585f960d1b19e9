#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/sendfile.h>
#include <unistd.h>

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

// Lets the kernel copy, which takes less time. When that fails the files are rewound, so that the
// loop that follows starts over and is the one place that decides between success and failure.
// A pipe cannot be rewound and gets the rest.
void copy_in_kernel(int source, int destination) {
  ssize_t copied = 0;
  do {
    copied = sendfile(destination, source, nullptr, kKernelPiece);
  } while (copied > 0);
  if (copied < 0 && lseek(destination, 0, SEEK_SET) == 0) (void)lseek(source, 0, SEEK_SET);
}

}  // namespace

int tq_copy_file(const char* src, const char* dst) {
  if (src == nullptr || dst == nullptr) return EINVAL;
  const tarvio::File source = open_file(src, "rbe");
  if (source == nullptr) return errno;
  const tarvio::File destination = open_file(dst, "wbe");
  if (destination == nullptr) return errno;

  copy_in_kernel(fileno(source.get()), fileno(destination.get()));
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
