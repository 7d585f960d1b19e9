// The owner of a status record with its strings.
#ifndef TARVIO_SRC_STATUS_STATUS_RECORD_H
#define TARVIO_SRC_STATUS_STATUS_RECORD_H

#include <memory>

#include "tarvio/status.h"

namespace tarvio {

void free_status(tq_status* record) noexcept;

struct FreeStatus {
  void operator()(tq_status* record) const noexcept { free_status(record); }
};
using StatusRecord = std::unique_ptr<tq_status, FreeStatus>;

// Null when the source lacks name or detail, or memory runs out, which is logged.
StatusRecord copy_status(const tq_status& source) noexcept;

}  // namespace tarvio

#endif
