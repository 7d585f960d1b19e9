#include "answers.h"

#include <stdexcept>
#include <utility>

#include "fleet/payload.h"
#include "job.h"
#include "say.h"

namespace agent {

void Answers::finish(const std::string& id, const Json& answer) {
  try {
    journal_.finish(id, answer);
  } catch (const std::runtime_error& error) {
    // It is recorded with its delivery then. After a cut before that, it is reported again.
    say(error.what());
  }
  send_again(id);
}

void Answers::send_again(const std::string& id) {
  const JournalEntry& entry = *journal_.find(id);
  const Json answer = Json::parse(entry.answer);
  for (const ReturnAddress& asker : entry.askers) {
    // They are delivered in their order.
    const bool is_last = &asker == &entry.askers.back();
    reply(asker, answer, is_last ? [this, id] { deliver(id); } : std::function<void()>());
  }
}

void Answers::deliver(const std::string& id) {
  try {
    journal_.deliver(id);
  } catch (const std::runtime_error& error) {
    say(error.what());
  }
}

void Answers::reply(const ReturnAddress& asker, Json answer,
                    const std::function<void()>& delivered) {
  answer["device"] = device_;
  const std::string text = fleet::payload_of(answer);
  if (answer.erase("result") > 0) {
    add_note(answer, "its result is too long for the broker");
  }
  outbox_.answer(asker, text, fleet::payload_of(answer), delivered);
}

}  // namespace agent
