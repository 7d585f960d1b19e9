// Which version of a package is the older one.
#ifndef TARVIO_CLIENT_PACKAGES_VERSION_ORDER_H
#define TARVIO_CLIENT_PACKAGES_VERSION_ORDER_H

#include <string_view>

namespace client {

// In the order of opkg: "[EPOCH:]VERSION[-REVISION]", numbers as numbers, and "~" before the end.
bool is_older(std::string_view version, std::string_view other);

}  // namespace client

#endif
