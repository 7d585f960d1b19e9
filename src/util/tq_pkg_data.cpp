#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cstddef>

#include "base/owners.h"
#include "tarvio/archive.h"
#include "tarvio/text.h"

static_assert(offsetof(tq_pkg_data, count) == 0);
static_assert(offsetof(tq_pkg_data, lines) == sizeof(void*));
static_assert(sizeof(tq_pkg_data) == 2 * sizeof(void*));

namespace {

constexpr size_t kGrowth = 1024;
constexpr size_t kShortestHeader = 16;
constexpr char kComplaint[] = "Collected errors";

struct ClosePackageData {
  void operator()(tq_pkg_data* handle) const noexcept {
    const tarvio::ErrnoKeeper keeper;
    tq_pkg_data_close(handle);
  }
};
using PackageData = std::unique_ptr<tq_pkg_data, ClosePackageData>;

// Grows by steps; what it held stays valid when memory runs out.
class LineBuffer {
 public:
  bool put(char byte) {
    if (used_ == size_ && !grow()) return false;
    bytes_.get()[used_++] = byte;
    return true;
  }
  [[nodiscard]] bool empty() const { return used_ == 0; }
  tarvio::CString release() { return std::move(bytes_); }

 private:
  bool grow() {
    void* grown = realloc(bytes_.get(), size_ + kGrowth);
    if (grown == nullptr) return false;
    (void)bytes_.release();
    bytes_.reset(static_cast<char*>(grown));
    size_ += kGrowth;
    return true;
  }

  tarvio::CString bytes_;
  size_t size_ = 0;
  size_t used_ = 0;
};

bool ends_line(FILE* stream, int byte) {
  if (byte == '\r') {
    const int next = fgetc(stream);
    if (next != '\n' && next != EOF) (void)ungetc(next, stream);
    return true;
  }
  return byte == '\n';
}

// The next line without its end, of any length; null at the end of the stream and when memory runs
// out.
tarvio::CString read_line(FILE* stream) {
  LineBuffer line;
  while (true) {
    const int byte = fgetc(stream);
    if (byte == EOF && line.empty()) return nullptr;
    if (byte == EOF || ends_line(stream, byte)) break;
    if (!line.put(static_cast<char>(byte))) return nullptr;
  }
  return line.put('\0') ? line.release() : nullptr;
}

bool is_accepted(const char* header) {
  return header != nullptr && strlen(header) >= kShortestHeader &&
         strstr(header, kComplaint) == nullptr;
}

}  // namespace

tq_pkg_data* tq_pkg_data_open(const char* command) {
  if (command == nullptr) return nullptr;
  PackageData data(tarvio::allocate<tq_pkg_data>().release());
  if (data == nullptr) return nullptr;
  *data = {.count = 0, .lines = nullptr};
  const tarvio::Stream output(popen(command, "re"));
  if (output == nullptr) return nullptr;

  const tarvio::CString header = read_line(output.get());
  if (!is_accepted(header.get())) {
    // Without line ends, on purpose.
    while (const tarvio::CString line = read_line(output.get())) (void)printf("%s", line.get());
    return nullptr;
  }
  while (const tarvio::CString line = read_line(output.get())) {
    if (tq_pkg_data_write(data.get(), line.get()) != 0) return nullptr;
  }
  return data.release();
}

int32_t tq_pkg_data_count(const tq_pkg_data* handle) {
  return handle == nullptr ? 0 : handle->count;
}

const char* tq_pkg_data_find(const tq_pkg_data* handle, uint32_t index) {
  return handle == nullptr ? nullptr : handle->lines[index];
}

int tq_pkg_data_write(tq_pkg_data* handle, const char* line) {
  if (handle == nullptr) return EINVAL;
  const size_t count = static_cast<size_t>(handle->count);
  void* grown = realloc(static_cast<void*>(handle->lines), (count + 1) * sizeof(char*));
  if (grown == nullptr) return errno;
  handle->lines = static_cast<char**>(grown);
  // A copy that finds no memory is stored as null, on purpose.
  tq_strdup(&handle->lines[count], line);
  ++handle->count;
  return 0;
}

int tq_pkg_data_close(tq_pkg_data* handle) {
  if (handle == nullptr) return 0;
  for (int32_t at = 0; at < handle->count; ++at) free(handle->lines[at]);
  free(static_cast<void*>(handle->lines));
  free(handle);
  return 0;
}
