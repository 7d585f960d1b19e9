// PROGRAM-completions SHELL: prints the completions of a shell.
#include <cstdio>
#include <string_view>

#include "completions.h"
#include "program.h"

int main(int argc, char** argv) {
  const std::string_view shell = argc == 2 ? argv[1] : "";
  std::string text;
  if (shell == "bash") text = completions::bash();
  if (shell == "zsh") text = completions::zsh();
  if (shell == "fish") text = completions::fish();
  if (text.empty()) {
    (void)std::fprintf(stderr, "usage: %s-completions bash|zsh|fish\n", client::kProgram.name);
    return 64;
  }
  return std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
}
