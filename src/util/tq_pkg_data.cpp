#undef _FORTIFY_SOURCE  // or a host that wraps printf would not see the calls

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cstddef>

#include "base/line_reader.h"
#include "base/owners.h"
#include "tarvio/archive.h"

static_assert(offsetof(tq_pkg_data, count) == 0);
static_assert(offsetof(tq_pkg_data, lines) == sizeof(void*));
static_assert(sizeof(tq_pkg_data) == 2 * sizeof(void*));

namespace {

constexpr size_t kShortestHeader = 16;
constexpr char kComplaint[] = "Collected errors";

struct ClosePackageData {
  void operator()(tq_pkg_data* handle) const noexcept { tq_pkg_data_close(handle); }
};
using PackageData = std::unique_ptr<tq_pkg_data, ClosePackageData>;

// The exit status does not count, the heading alone does (oddity 137).
bool is_accepted(const char* header) {
  return strlen(header) >= kShortestHeader && strstr(header, kComplaint) == nullptr;
}

}  // namespace

tq_pkg_data* tq_pkg_data_open(const char* command) {
  if (command == nullptr) return nullptr;
  PackageData data(tarvio::allocate<tq_pkg_data>().release());
  if (data == nullptr) return nullptr;
  *data = {.count = 0, .lines = nullptr};
  const tarvio::Stream output(popen(command, "re"));
  if (output == nullptr) return nullptr;

  tarvio::ReadAhead read_ahead;
  tarvio::LineCutter line(tarvio::LineEnd::kAny);
  tarvio::LineReader reader(fileno(output.get()), read_ahead, line);
  if (!reader.next() || !is_accepted(line.text())) {
    while (reader.next()) (void)printf("%s", line.text());  // without line ends (oddity 138)
    return nullptr;
  }
  while (reader.next()) {
    if (tq_pkg_data_write(data.get(), line.text()) != 0) return nullptr;
  }
  return data.release();
}

int32_t tq_pkg_data_count(const tq_pkg_data* handle) {
  return handle == nullptr ? 0 : handle->count;
}

const char* tq_pkg_data_find(const tq_pkg_data* handle, uint32_t index) {
  return handle == nullptr ? nullptr : handle->lines[index];
}

// A line for which memory runs out is stored as null (oddity 139).
int tq_pkg_data_write(tq_pkg_data* handle, const char* line) {
  if (handle == nullptr) return EINVAL;
  const size_t count = static_cast<size_t>(handle->count);
  void* grown = realloc(static_cast<void*>(handle->lines), (count + 1) * sizeof(char*));
  if (grown == nullptr) return errno;
  handle->lines = static_cast<char**>(grown);
  handle->lines[count] = tarvio::copy_of(line).release();
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
