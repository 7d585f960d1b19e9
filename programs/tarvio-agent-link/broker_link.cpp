#include "broker_link.h"

#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "fleet/session.h"
#include "fleet/topics.h"
#include "idle_memory.h"
#include "say.h"

namespace agent {

namespace {

using fleet::Event;
using fleet::Message;
using fleet::Session;
using tarvio::Deadline;

constexpr uint32_t kKeptSeconds = 24 * 60 * 60;
constexpr uint32_t kMaxMessageBytes = uint32_t{1} << 20U;
constexpr char kOffline[] = R"({"online":false})";

void give_up_root(const std::string& user) {
  if (geteuid() != 0) return;
  const passwd* const entry = getpwnam(user.c_str());
  if (entry == nullptr) {
    throw std::runtime_error("user '" + user +
                             "' does not exist: create it, or name another one with run_as");
  }
  if (entry->pw_uid == geteuid()) return;
  if (initgroups(user.c_str(), entry->pw_gid) != 0 || setgid(entry->pw_gid) != 0 ||
      setuid(entry->pw_uid) != 0) {
    throw std::runtime_error("cannot become the user '" + user + "': " + std::strerror(errno));
  }
}

fleet::SessionSettings session_of(const Settings& settings) {
  return {.broker = settings.broker,
          .client_id = settings.device,
          .will = Message{.topic = fleet::topic_of(settings.device, fleet::kOnline),
                          .payload = kOffline,
                          .is_retained = true},
          .kept_seconds = kKeptSeconds,
          .max_message_bytes = kMaxMessageBytes};
}

class Link {
 public:
  Link(const Settings& settings, Channel channel)
      : request_topic_(fleet::topic_of(settings.device, fleet::kRequest)),
        session_(session_of(settings)),
        channel_(std::move(channel)) {}

  // Until the channel is closed.
  [[noreturn]] void run() {
    for (;;) {
      std::array<pollfd, 2> files = {
          pollfd{.fd = channel_.fd(), .events = POLLIN, .revents = 0},
          pollfd{.fd = session_.fd(), .events = session_.events(), .revents = 0}};
      const Deadline due = Deadline::sooner(session_.due(), idle_memory_.due());
      const int ready = poll(files.data(), files.size(), due.remaining_ms());
      if (ready < 0) continue;
      idle_memory_.step(ready > 0);
      if (files[0].revents != 0) channel_.receive();
      while (const std::optional<Record> record = channel_.next()) publish(*record);
      // After that: what needs no acknowledgement is delivered as soon as it is published.
      session_.step(files[1].revents);
      while (const std::optional<Event> event = session_.next_event()) tell(*event);
    }
  }

 private:
  void tell(const Event& event) {
    switch (event.kind) {
      case Event::Kind::kConnected:
        session_.subscribe(request_topic_);
        channel_.send({kConnected});
        break;
      case Event::Kind::kLost:
        if (last_qos_ == 0) last_id_ = 0;  // not published again
        channel_.send({kLost, event.cause, last_id_ != 0 ? "1" : "0"});
        break;
      case Event::Kind::kMessage:
        if (event.message.topic == request_topic_ && !event.message.is_retained) {
          pass_on(event.message);
        }
        break;
      case Event::Kind::kDelivered:
        if (event.id != last_id_) break;
        last_id_ = 0;
        channel_.send({event.is_refused() ? kNotTaken : kDelivered});
        break;
    }
  }

  void pass_on(const Message& request) {
    channel_.send({kRequested, request.payload, request.response_topic, request.correlation,
                   request.seconds ? std::to_string(*request.seconds) : ""});
  }

  // What comes after a loss is sent again by the other process, once it has heard of it.
  void publish(const Record& record) {
    if (record.size() != 6 || record[0] != kPublish) throw ChannelClosed();
    if (!session_.is_connected()) return;
    const Message message = {.topic = record[1],
                             .payload = record[2],
                             .is_retained = record[4] == "1",
                             .qos = record[3] == "0" ? 0 : 1,
                             .correlation = record[5]};
    try {
      last_id_ = session_.publish(message);
      last_qos_ = message.qos;
    } catch (const fleet::TooLong&) {
      channel_.send({kTooLong});
    }
  }

  std::string request_topic_;
  Session session_;
  Channel channel_;
  IdleMemory idle_memory_;
  int last_id_ = 0;  // of what is to be delivered; 0 for nothing
  int last_qos_ = 0;
};

}  // namespace

int run_link(const Settings& settings, Channel channel) {
  try {
    give_up_root(settings.run_as);
    (void)prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    // It must not outlive the other process while it waits for a connection.
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    Link(settings, std::move(channel)).run();
  } catch (const ChannelClosed&) {
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    say(error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace agent
