#include <errno.h>
#include <stdlib.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "base/line_reader.h"
#include "base/list_appender.h"
#include "base/owners.h"
#include "lib/manager_request.h"
#include "tarvio/client.h"
#include "tarvio/status.h"
#include "util/log_macros.h"

using tarvio::CString;

namespace {

constexpr size_t kLineSize = 255;

// The next line with its line end; null at the end of data.
CString next_line(tarvio::LineReader& reader, tarvio::LineCutter& line) {
  return reader.next() ? tarvio::copy_of(line.text()) : nullptr;
}

int32_t number_of(const char* text) {
  using Limits = std::numeric_limits<int32_t>;
  const long number = strtol(text, nullptr, 10);
  return static_cast<int32_t>(std::clamp<long>(number, Limits::min(), Limits::max()));
}

// The state's number goes into `id`, and the line ends stay (oddity 125).
bool append_record(tarvio::ListAppender& list, CString name, int32_t state, CString detail) {
  tarvio::Allocated<tq_status> record = tarvio::allocate<tq_status>();
  if (record == nullptr) return false;
  *record = tq_status{};
  record->id = state;
  record->name = name.get();
  record->detail = detail.get();
  if (!list.append(std::move(record))) return false;
  (void)name.release();
  (void)detail.release();
  TQ_DEBUG("adding status to the list.");
  return true;
}

int tq_lib_read_status(int fd, tq_list_t& list) {
  tarvio::ReadAhead ahead;
  char room[kLineSize];
  tarvio::LineCutter line(tarvio::LineEnd::kEither, room);
  tarvio::LineReader reader(fd, ahead, line);
  tarvio::ListAppender appender(list);
  while (CString name = next_line(reader, line)) {
    if (!reader.next()) {
      TQ_WARNING("Can't read status.");
      return EINVAL;
    }
    const int32_t state = number_of(line.text());
    CString detail = next_line(reader, line);
    if (detail == nullptr) {
      TQ_WARNING("Can't read status detail.");
      return EINVAL;
    }
    if (!append_record(appender, std::move(name), state, std::move(detail))) return ENOMEM;
  }
  return 0;
}

int list_status(const char* command, tq_list_t* list) {
  if (list == nullptr) return EINVAL;
  const tarvio::Fd fd(tarvio::request_manager(command, nullptr));
  TQ_DEBUG("fd is %d", fd.get());
  if (!fd.valid()) return fd.get();
  (void)tq_lib_read_status(fd.get(), *list);  // a list that is cut is a success (oddity 126)
  return 0;
}

}  // namespace

int tq_lib_list_all_status(tq_list_t* list) { return list_status("status_all", list); }

int tq_lib_list_app_status(tq_list_t* list) { return list_status("status_app", list); }
