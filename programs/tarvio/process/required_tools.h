// The tools that a command runs.
#ifndef TARVIO_CLIENT_PROCESS_REQUIRED_TOOLS_H
#define TARVIO_CLIENT_PROCESS_REQUIRED_TOOLS_H

#include <initializer_list>
#include <string>

namespace client {

inline constexpr char kRemedyForMissingTool[] = "install it, or add its directory to PATH";

// The first file of that name on PATH that can be run; empty when there is none.
std::string path_of_tool(const std::string& name);

// Throws a Failure that names a tool which is not on PATH: what is left undone for want of a tool
// can look like the result of a run.
void require_tools(std::initializer_list<const char*> names);

}  // namespace client

#endif
