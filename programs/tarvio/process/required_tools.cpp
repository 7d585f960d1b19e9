#include "process/required_tools.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>

#include "process/failure.h"

namespace client {

std::string path_of_tool(const std::string& name) {
  const char* const variable = getenv("PATH");
  std::string_view path = variable == nullptr ? "/bin:/usr/bin" : variable;
  while (true) {
    const std::string_view directory = path.substr(0, path.find(':'));
    std::string file = std::string(directory.empty() ? "." : directory) + '/' + name;
    if (access(file.c_str(), X_OK) == 0) return file;
    if (directory.size() == path.size()) return "";
    path.remove_prefix(directory.size() + 1);
  }
}

void require_tools(std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (!path_of_tool(name).empty()) continue;
    throw Failure(ENOENT,
                  std::string("the tool ") + name + " is missing; " + kRemedyForMissingTool);
  }
}

}  // namespace client
