#include "commands/flash_options.h"

#include <string_view>

namespace client {

std::string given_work_directory(const Arguments& arguments) {
  const std::string* const given = arguments.value_of(kWorkDirectory);
  if (given == nullptr) return "";
  if (given->empty()) throw UsageError("the DIR of --workdir must not be empty");
  return *given;
}

bool wants_verification(const Arguments& arguments, bool is_default) {
  bool is_wanted = is_default;
  for (const GivenOption& given : arguments.options) {
    const std::string_view name = given.option.name;
    if (name == kVerify.name) is_wanted = true;
    if (name == kNoVerify.name) is_wanted = false;
  }
  return is_wanted;
}

}  // namespace client
