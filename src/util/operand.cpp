#include "util/operand.h"

#include <errno.h>
#include <string.h>

namespace tarvio {
namespace {

constexpr char kShellCharacters[] = " \"';&|<>()[]{}$*?!`\\\x7f";
constexpr char kSpecialAtStart[] = "-~#";
constexpr unsigned char kLastControl = 0x1f;

bool is_plain(char character) {
  return static_cast<unsigned char>(character) > kLastControl &&
         strchr(kShellCharacters, character) == nullptr;
}

bool is_plain_operand(const char* operand) {
  if (*operand != '\0' && strchr(kSpecialAtStart, *operand) != nullptr) return false;
  while (is_plain(*operand)) ++operand;
  return *operand == '\0';
}

}  // namespace

int check_operand(LogPlace caller, const char* function, const char* operand) {
  if (is_plain_operand(operand)) return 0;
  log_line(TQ_LOG_WARNING, caller.unit, caller.line, "%s: %s: %s", function, operand,
           "contains a shell metacharacter or begins like an option");
  return EINVAL;
}

}  // namespace tarvio
