// The tools that a command runs.
#ifndef TARVIO_CLIENT_PROCESS_REQUIRED_TOOLS_H
#define TARVIO_CLIENT_PROCESS_REQUIRED_TOOLS_H

#include <initializer_list>

namespace client {

// Throws a Failure that names a tool which is not on PATH: what is left undone for want of a tool
// can look like the result of a run.
void require_tools(std::initializer_list<const char*> names);

}  // namespace client

#endif
