// Statuses for people.
#ifndef TARVIO_CLIENT_STATUS_TABLE_H
#define TARVIO_CLIENT_STATUS_TABLE_H

#include <string>
#include <vector>

#include "reply.h"

namespace client {

std::string table_of(const std::vector<Status>& statuses);

}  // namespace client

#endif
