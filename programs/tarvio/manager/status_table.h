// Statuses for people.
#ifndef TARVIO_CLIENT_MANAGER_STATUS_TABLE_H
#define TARVIO_CLIENT_MANAGER_STATUS_TABLE_H

#include <string>
#include <vector>

#include "manager/manager_reply.h"

namespace client {

std::string table_of(const std::vector<Status>& statuses);

}  // namespace client

#endif
