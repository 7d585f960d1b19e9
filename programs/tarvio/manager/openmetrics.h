// The manager's states and figures in the OpenMetrics text form.
#ifndef TARVIO_CLIENT_MANAGER_OPENMETRICS_H
#define TARVIO_CLIENT_MANAGER_OPENMETRICS_H

#include <string>
#include <vector>

#include "manager/app_text.h"

namespace client {

std::string openmetrics_of(const ManagerState& state, const std::vector<Entry>& entries);

}  // namespace client

#endif
