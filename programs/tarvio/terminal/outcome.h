// The work on the operands of a command: one that fails does not hide the others.
#ifndef TARVIO_CLIENT_TERMINAL_OUTCOME_H
#define TARVIO_CLIENT_TERMINAL_OUTCOME_H

#include <cstdint>
#include <functional>
#include <string>

#include "process/failure.h"
#include "terminal/json.h"

namespace client {

// What came of one operand.
struct Outcome {
  std::string operand;
  int32_t code = 0;
  std::string message;
  ExitStatus status = kDone;
};

// Does the work, and complains when it throws a Failure or runs out of memory: "cannot VERB
// 'OPERAND': ..."
Outcome attempt(const char* verb, const std::string& operand, const std::function<void()>& work);

// The operand under the given key, the code and the message.
Json json_of(const char* operand_key, const Outcome& outcome);

}  // namespace client

#endif
