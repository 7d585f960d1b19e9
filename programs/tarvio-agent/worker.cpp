#include "worker.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "facts.h"
#include "fleet/payload.h"
#include "fleet/topics.h"
#include "job.h"
#include "journal.h"
#include "outbox.h"
#include "request.h"

namespace agent {

namespace {

using tarvio::Deadline;

constexpr size_t kMostWaiting = 32;
constexpr mode_t kDirectoryMode = 0700;
constexpr char kCut[] = "the board or its agent went down in the middle of this request";

void say(const std::string& text) {
  (void)std::fprintf(stderr, "tarvio-agent: %s\n", text.c_str());
}

void make_directory(const std::string& directory) {
  if (mkdir(directory.c_str(), kDirectoryMode) != 0 && errno != EEXIST) {
    throw std::runtime_error("cannot create '" + directory + "': " + std::strerror(errno));
  }
}

tarvio::Fd open_signals() {
  sigset_t signals;
  (void)sigemptyset(&signals);
  for (const int number : {SIGTERM, SIGINT}) (void)sigaddset(&signals, number);
  (void)sigprocmask(SIG_BLOCK, &signals, nullptr);
  return tarvio::Fd(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

// A request that waits for its turn.
struct Waiting {
  Request request;
  Deadline expires;
  std::string note;
};

// Requests that are worked on one after another.
struct Lane {
  std::deque<Waiting> waiting;
  std::unique_ptr<Job> job;
};

class Worker {
 public:
  Worker(const Settings& settings, Channel channel);

  // False once the link is gone.
  bool run();

 private:
  enum File : size_t { kChannel, kSignals, kFacts };
  static constexpr size_t kLanes = 2;
  static constexpr size_t kFirstJob = kFacts + Facts::kFiles;
  static constexpr size_t kFiles = kFirstJob + kLanes * fleet::ChildProcess::kFiles;

  [[nodiscard]] bool is_idle() const;
  void wait();
  void lose_link();
  void take_records();
  void take(const Record& record);
  void take_request(const Record& record);
  void accept(const std::string& payload, const ReturnAddress& address, double seconds_left);
  void enqueue(Request request, const Deadline& expires, const std::string& note);
  void recover();
  void go_on(Lane& lane);
  void start(Lane& lane);
  void finish(const std::string& id, Json answer);
  void send_again(const std::string& id);
  void reply(const ReturnAddress& address, Json answer, const std::function<void()>& delivered);

  Lane& lane_of(const Request& request) {
    return lanes_[request.room == Room::kPackagesAndFlash ? 1 : 0];
  }

  const Settings& settings_;
  Channel channel_;
  tarvio::Fd signals_ = open_signals();
  Journal journal_;
  Outbox outbox_;
  Facts facts_;
  std::array<Lane, kLanes> lanes_;
  bool has_records_ = false;
  bool has_link_ = true;
  bool is_ending_ = false;
};

Worker::Worker(const Settings& settings, Channel channel)
    : settings_(settings),
      channel_(std::move(channel)),
      journal_((make_directory(settings.directory), settings.directory + "/journal")),
      outbox_(channel_, settings.device),
      facts_(settings, outbox_) {
  make_directory(settings.directory + "/files");
  recover();
}

// What a power cut, or a kill, has left.
void Worker::recover() {
  for (const std::string& id : journal_.ids_in(JournalEntry::State::kAnswered)) send_again(id);
  for (const std::string& id : journal_.ids_in(JournalEntry::State::kRunning)) {
    try {
      Request request = parse_request(journal_.find(id)->payload, settings_.requires_signature);
      if (request.after_cut == AfterCut::kRunAgain) {
        say("request " + id + ": " + kCut + "; it is run again");
        enqueue(std::move(request), Deadline::never(), std::string(kCut) + "; it was run again");
        continue;
      }
    } catch (const Refusal& refusal) {
      say("request " + id + ": " + refusal.what());  // accepted by an agent of another version
    }
    finish(id, answer_of(id, kInterrupted,
                         std::string(kCut) + ": look what has become of it, and ask again"));
  }
}

bool Worker::is_idle() const {
  for (const Lane& lane : lanes_) {
    if (lane.job != nullptr) return false;
  }
  return true;
}

bool Worker::run() {
  while (!is_ending_ || !is_idle()) {
    wait();
    try {
      take_records();
    } catch (const ChannelClosed&) {
      say("the process that speaks to the broker has ended");
      lose_link();
    }
    facts_.step();
    for (Lane& lane : lanes_) go_on(lane);
  }
  return has_link_;
}

void Worker::wait() {
  std::array<pollfd, kFiles> files;
  files[kChannel] = {.fd = has_link_ ? channel_.fd() : -1, .events = POLLIN, .revents = 0};
  files[kSignals] = {.fd = signals_.get(), .events = POLLIN, .revents = 0};
  facts_.list(files.data() + kFacts);
  pollfd* at = files.data() + kFirstJob;
  for (const Lane& lane : lanes_) {
    at[0] = at[1] = {.fd = -1, .events = 0, .revents = 0};
    if (lane.job != nullptr) lane.job->list(at);
    at += fleet::ChildProcess::kFiles;
  }
  if (poll(files.data(), files.size(), facts_.due().remaining_ms()) < 0) return;
  if (files[kSignals].revents != 0) {
    signalfd_siginfo signal = {};
    is_ending_ = read(signals_.get(), &signal, sizeof signal) == sizeof signal;
  }
  has_records_ = files[kChannel].revents != 0;
}

// What was begun is finished; the next agent says what has come of it.
void Worker::lose_link() {
  has_link_ = false;
  is_ending_ = true;
  outbox_.on_lost();
}

void Worker::take_records() {
  if (has_records_) channel_.receive();
  while (const std::optional<Record> record = channel_.next()) take(*record);
}

void Worker::take(const Record& record) {
  const std::string& what = record.front();
  if (what == kConnected) {
    say("connected to the broker " + settings_.broker.name() + " as " + settings_.device);
    facts_.tell_system();
    outbox_.on_connected();
  } else if (what == kLost && record.size() == 2) {
    say(record[1]);
    outbox_.on_lost();
  } else if (what == kDelivered) {
    outbox_.on_delivered();
  } else if (what == kRequested && record.size() == 5) {
    take_request(record);
  } else {
    throw ChannelClosed();
  }
}

void Worker::take_request(const Record& record) {
  const ReturnAddress address = {.topic = record[2], .correlation = record[3]};
  const std::string own = fleet::topic_of(settings_.device, fleet::kAnswer);
  if (!address.topic.starts_with(own) || !fleet::is_name(address.topic.substr(own.size()))) {
    say("a request is ignored: its response topic '" + address.topic + "' is not '" + own +
        "OPERATOR'");
    return;
  }
  const double seconds_left = record[4].empty() ? 0 : std::strtod(record[4].c_str(), nullptr);
  try {
    accept(record[1], address, seconds_left);
  } catch (const Refusal& refusal) {
    reply(address, answer_of(id_in(record[1]), kRefused, refusal.what()), {});
  }
}

// seconds_left  of the time in which the broker has kept it; 0 where that is not limited.
void Worker::accept(const std::string& payload, const ReturnAddress& address, double seconds_left) {
  Request request = parse_request(payload, settings_.requires_signature);
  const std::string id = request.id;
  if (const JournalEntry* const known = journal_.find(id)) {
    if (known->state != JournalEntry::State::kRunning) {
      reply(address, Json::parse(known->answer), {});
    }
    return;  // else its answer comes when it is done
  }
  if (is_ending_) throw Refusal("the agent is being stopped");
  const Lane& lane = lane_of(request);
  if (lane.waiting.size() >= kMostWaiting) {
    throw Refusal("the queue is full: " + std::to_string(kMostWaiting) +
                  " requests are waiting; try again later");
  }
  const double seconds =
      seconds_left > 0 ? std::min(seconds_left, request.seconds) : request.seconds;
  try {
    journal_.begin(id, payload, address);
  } catch (const std::runtime_error& error) {
    throw Refusal(std::string("the request cannot be recorded: ") + error.what());
  }
  enqueue(std::move(request), Deadline::after_seconds(seconds), "");
}

void Worker::enqueue(Request request, const Deadline& expires, const std::string& note) {
  Lane& lane = lane_of(request);
  lane.waiting.push_back({.request = std::move(request), .expires = expires, .note = note});
}

void Worker::go_on(Lane& lane) {
  if (lane.job != nullptr) {
    std::optional<Json> answer = lane.job->step();
    if (!answer) return;
    const std::string id = lane.job->request().id;
    lane.job.reset();
    finish(id, std::move(*answer));
  }
  while (lane.job == nullptr && !lane.waiting.empty() && !is_ending_) start(lane);
}

void Worker::start(Lane& lane) {
  Waiting next = std::move(lane.waiting.front());
  lane.waiting.pop_front();
  const std::string id = next.request.id;
  if (next.expires.passed()) {
    finish(id, answer_of(id, kExpired, "the request came or waited too long, and was not run"));
    return;
  }
  try {
    lane.job =
        std::make_unique<Job>(std::move(next.request), settings_, std::move(next.note),
                              [this](const Json& json) { outbox_.show(fleet::payload_of(json)); });
  } catch (const std::runtime_error& error) {
    finish(id, answer_of(id, kFailed, error.what()));
  }
}

void Worker::finish(const std::string& id, Json answer) {
  try {
    journal_.finish(id, answer);
    send_again(id);
  } catch (const std::runtime_error& error) {
    // The request stays begun, and is reported again after a restart.
    say(error.what());
    reply(journal_.find(id)->address, std::move(answer), {});
  }
}

void Worker::send_again(const std::string& id) {
  const JournalEntry& entry = *journal_.find(id);
  reply(entry.address, Json::parse(entry.answer), [this, id] {
    try {
      journal_.deliver(id);
    } catch (const std::runtime_error& error) {
      say(error.what());
    }
  });
}

void Worker::reply(const ReturnAddress& address, Json answer,
                   const std::function<void()>& delivered) {
  answer["device"] = settings_.device;
  outbox_.answer(address.topic, address.correlation, fleet::payload_of(answer), delivered);
}

}  // namespace

int run_worker(const Settings& settings, Channel channel) {
  try {
    return Worker(settings, std::move(channel)).run() ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    say(error.what());
  }
  return EXIT_FAILURE;
}

}  // namespace agent
