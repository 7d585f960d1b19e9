// What a package needs of others.
#ifndef TARVIO_CLIENT_PACKAGES_DEPENDENCIES_H
#define TARVIO_CLIENT_PACKAGES_DEPENDENCIES_H

#include <string>
#include <string_view>

namespace client {

// The first dependency in the text of a control file that no installed package satisfies, as it is
// written there; empty when there is none. Throws a Failure when it cannot be found out.
std::string missing_dependency(std::string_view control);

}  // namespace client

#endif
