#include "terminal/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/pipe.h"
#include "terminal/printable_text.h"

namespace client {

namespace {

bool is_set(const char* variable) {
  const char* value = getenv(variable);
  return value != nullptr && *value != '\0';
}

bool is_dumb_terminal() {
  const char* terminal = getenv("TERM");
  return terminal == nullptr || strcmp(terminal, "dumb") == 0;
}

}  // namespace

bool print(std::string_view text) {
  if (tarvio::write_all(STDOUT_FILENO, text)) return true;
  complain(std::string("cannot write the output: ") + strerror(errno));
  return false;
}

void complain(std::string_view message) {
  // There is nowhere left to report that standard error fails as well.
  (void)tarvio::write_all(STDERR_FILENO, "tarvio: " + printable(message) + '\n');
}

bool is_screen() { return isatty(STDOUT_FILENO) == 1 && !is_dumb_terminal(); }

bool wants_colour() { return is_screen() && !is_set("NO_COLOR"); }

}  // namespace client
