// What has come of requests: recorded first, then said to everybody who asked.
#ifndef TARVIO_AGENT_ANSWERS_H
#define TARVIO_AGENT_ANSWERS_H

#include <functional>
#include <string>

#include "outbox.h"
#include "request_journal.h"

namespace agent {

class Answers {
 public:
  // All of them outlive it.
  Answers(Journal& journal, Outbox& outbox, const std::string& device)
      : journal_(journal), outbox_(outbox), device_(device) {}

  // Of a request in the journal.
  void finish(const std::string& id, const Json& answer);
  // What was recorded and perhaps not delivered.
  void send_again(const std::string& id);

  // To one who asks, without a record.
  void reply(const ReturnAddress& asker, Json answer, const std::function<void()>& delivered = {});

 private:
  void deliver(const std::string& id);

  Journal& journal_;
  Outbox& outbox_;
  const std::string& device_;
};

}  // namespace agent

#endif
