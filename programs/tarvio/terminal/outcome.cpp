#include "terminal/outcome.h"

#include "process/failure.h"
#include "terminal/output.h"
#include "terminal/words.h"

namespace client {

Outcome attempt(const char* verb, const std::string& operand, const std::function<void()>& work) {
  try {
    work();
    return {.operand = operand, .code = 0, .message = result_words(0), .status = kDone};
  } catch (const Failure& failure) {
    complain(std::string("cannot ") + verb + " '" + operand + "': " + failure.what() + " (" +
             std::to_string(failure.code()) + ")");
    return {.operand = operand,
            .code = failure.code(),
            .message = failure.what(),
            .status = failure.status()};
  }
}

Json json_of(const char* operand_key, const Outcome& outcome) {
  return {{operand_key, outcome.operand}, {"code", outcome.code}, {"message", outcome.message}};
}

}  // namespace client
