#include "terminal/outcome.h"

#include <cerrno>
#include <new>

#include "process/failure.h"
#include "process/last_words.h"
#include "terminal/output.h"
#include "terminal/words.h"

namespace client {

namespace {

Outcome failed(const char* verb, const std::string& operand, const Failure& failure) {
  complain(std::string("cannot ") + verb + " '" + operand + "': " + failure.what() + " (" +
           std::to_string(failure.code()) + ")");
  return {.operand = operand,
          .code = failure.code(),
          .message = failure.what(),
          .status = failure.status()};
}

}  // namespace

Outcome attempt(const char* verb, const std::string& operand, const std::function<void()>& work) {
  try {
    Outcome done = {.operand = operand, .code = 0, .message = result_words(0), .status = kDone};
    work();
    return done;
  } catch (const Failure& failure) {
    return failed(verb, operand, failure);
  } catch (const std::bad_alloc& error) {
    return failed(verb, operand, Failure(ENOMEM, cause_of(error)));
  }
}

Json json_of(const char* operand_key, const Outcome& outcome) {
  return {{operand_key, outcome.operand}, {"code", outcome.code}, {"message", outcome.message}};
}

}  // namespace client
