// Names that mean something to the shell, and names that do not.
#ifndef TARVIO_TESTS_SUPPORT_OPERANDS_H
#define TARVIO_TESTS_SUPPORT_OPERANDS_H

#include <string>
#include <vector>

namespace tarvio_test {

inline std::vector<std::string> refused_operands() {
  std::vector<std::string> names = {"-a", "~a", "#a", "--force-depends", "a$(id)"};
  for (const char byte : std::string(" \t\n\r\v\f\"';&|<>()[]{}$*?!`\\")) {
    names.push_back(std::string("a") + byte + "b");
    names.push_back(byte + std::string("b"));
    names.push_back(std::string("a") + byte);
  }
  for (char byte = 1; byte < ' '; ++byte) names.push_back(std::string("a") + byte);
  names.emplace_back("a\x7f");
  return names;
}

inline std::vector<std::string> taken_operands() {
  return {"a-b", "a~b", "a#b", "a-", "%+,-.:=@^_", "A9", "\xc3\xa4", "\xff"};
}

}  // namespace tarvio_test

#endif
