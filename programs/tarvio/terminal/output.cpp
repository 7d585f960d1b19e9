#include "terminal/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include "base/pipe.h"
#include "process/last_words.h"
#include "program.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

bool is_silent = false;

bool is_set(const char* variable) {
  const char* value = getenv(variable);
  return value != nullptr && *value != '\0';
}

bool is_dumb_terminal() {
  const char* terminal = getenv("TERM");
  return terminal == nullptr || strcmp(terminal, "dumb") == 0;
}

}  // namespace

void silence_output() noexcept { is_silent = true; }

bool print(std::string_view text) noexcept {
  static bool has_failed = false;
  if (is_silent) return !has_failed;
  if (!tarvio::write_all(STDOUT_FILENO, text) && !std::exchange(has_failed, true)) {
    write_line(STDERR_FILENO, {kProgram.name, ": cannot write the output: ", strerror(errno)});
  }
  return !has_failed;
}

void complain(std::string_view message) noexcept {
  // There is nowhere left to report that standard error fails as well.
  try {
    (void)tarvio::write_all(STDERR_FILENO,
                            std::string(kProgram.name) + ": " + printable(message) + '\n');
  } catch (const std::exception& error) {
    write_line(STDERR_FILENO, {kProgram.name, ": ", cause_of(error)});
  }
}

bool is_screen() { return isatty(STDOUT_FILENO) == 1 && !is_dumb_terminal(); }

ScreenSize screen_size() {
  constexpr size_t kAnything = std::numeric_limits<size_t>::max();
  winsize size = {};
  (void)ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
  return {.columns = size.ws_col == 0 ? kAnything : size.ws_col,
          .rows = size.ws_row == 0 ? kAnything : size.ws_row};
}

bool wants_colour() { return is_screen() && !is_set("NO_COLOR"); }

}  // namespace client
