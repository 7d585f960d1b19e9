#include "package/tq_tbx_package_binding/operand.h"

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

}  // namespace

bool is_plain_operand(const char* operand) {
  if (*operand != '\0' && strchr(kSpecialAtStart, *operand) != nullptr) return false;
  while (is_plain(*operand)) ++operand;
  return *operand == '\0';
}

}  // namespace tarvio
