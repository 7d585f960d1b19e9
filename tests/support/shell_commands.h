// The command lines that the library gives to the shell, with other ones run in their place.
#ifndef TARVIO_TESTS_SUPPORT_SHELL_COMMANDS_H
#define TARVIO_TESTS_SUPPORT_SHELL_COMMANDS_H

#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/hooks/got_hook.h"

namespace tarvio_test {

class ShellCommands {
 public:
  // What runs in place of a command line, such as "echo ...".
  using Replacement = std::function<std::string(const std::string&)>;

  explicit ShellCommands(Replacement replacement = [](const std::string&) { return "true"; })
      : replacement_(std::move(replacement)),
        hook_("popen", [this](auto... arguments) { return run(arguments...); }) {}

  const std::vector<std::string>& lines() const { return lines_; }

 private:
  FILE* run(const char* command, const char* mode) {
    lines_.emplace_back(command);
    return ::popen(replacement_(command).c_str(), mode);
  }

  std::vector<std::string> lines_;
  Replacement replacement_;
  Hook<std::function<FILE*(const char*, const char*)>> hook_;
};

// Runs nothing, and returns what would have run.
inline std::vector<std::string> commands_of(const std::function<void()>& call) {
  const ShellCommands commands;
  call();
  return commands.lines();
}

}  // namespace tarvio_test

#endif
