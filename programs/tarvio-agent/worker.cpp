#include "worker.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "answers.h"
#include "board/opkg_records.h"
#include "board_request.h"
#include "facts.h"
#include "fleet/payload.h"
#include "fleet/topics.h"
#include "idle_memory.h"
#include "job.h"
#include "orphan.h"
#include "outbox.h"
#include "process/kernel_text.h"
#include "request_journal.h"
#include "say.h"

namespace agent {

namespace {

namespace fs = std::filesystem;

using tarvio::Deadline;

constexpr size_t kMostWaiting = 32;
constexpr mode_t kDirectoryMode = 0700;
constexpr size_t kMostAskers = 8;  // of one request
constexpr int kBetweenLooksMs = 500;
constexpr int kLastWordsMs = 5000;
constexpr char kCut[] = "the board or its agent went down in the middle of this request";
constexpr char kNotBegun[] =
    "the board or its agent went down before this request was begun, and it was not run: ask again "
    "with a new id";

void make_directory(const std::string& directory) {
  if (mkdir(directory.c_str(), kDirectoryMode) != 0 && errno != EEXIST) {
    throw std::runtime_error("cannot create '" + directory + "': " + std::strerror(errno));
  }
}

// What opkg has left half done, for a note.
std::string words_of_unfinished(const std::string& packages_root) {
  std::string names;
  for (const std::string& name : unfinished_packages(packages_root)) names += " " + name;
  return names.empty() ? "" : "; opkg had left half done:" + names;
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
  bool has_ended();
  void wait();
  void lose_link();
  void take_records();
  void take(const Record& record);
  void take_request(const Record& record);
  void accept(const std::string& payload, const ReturnAddress& asker, double seconds_left);
  void ask_again(const Request& request, const ReturnAddress& asker);
  void enqueue(Request request, const Deadline& expires, const std::string& note);
  void recover();
  void run_again(const std::string& id);
  void await_orphan();
  void remove_left_files() const;
  void go_on(Lane& lane);
  void start(Lane& lane);

  Lane& lane_of(const Request& request) {
    return request.room == Room::kPackagesAndFlash ? packages_and_flash() : lanes_[0];
  }
  Lane& packages_and_flash() { return lanes_[1]; }

  const Settings& settings_;
  Channel channel_;
  const std::string packages_root_ = client::root_of_packages();
  tarvio::Fd signals_ = open_signals();
  Journal journal_;
  Outbox outbox_;
  Answers answers_;
  Facts facts_;
  std::array<Lane, kLanes> lanes_;
  IdleMemory idle_memory_;
  bool has_orphan_ = false;
  bool has_records_ = false;
  bool has_link_ = true;
  bool is_ending_ = false;
  bool has_warned_ = false;  // of what this connection does not let it publish
  Deadline end_ = Deadline::never();
};

Worker::Worker(const Settings& settings, Channel channel)
    : settings_(settings),
      channel_(std::move(channel)),
      journal_((make_directory(settings.directory), settings.directory + "/journal")),
      outbox_(channel_, settings.device),
      answers_(journal_, outbox_, settings.device),
      facts_(settings, packages_root_, outbox_),
      has_orphan_(has_orphan(settings.directory)) {
  if (journal_.damaged_lines() > 0) {
    say("lines of '" + settings.directory + "/journal' are not whole, as after a power cut, and " +
        std::to_string(journal_.damaged_lines()) + " were left out");
  }
  if (has_orphan_) {
    say("work on packages or flash memory of the agent before still goes on, and is waited for");
  }
  recover();
}

// What a power cut, or a kill, has left.
void Worker::recover() {
  using State = JournalEntry::State;
  for (const std::string& id : journal_.ids_in(State::kAnswered)) answers_.send_again(id);
  for (const std::string& id : journal_.ids_in(State::kRunning)) run_again(id);
  for (const std::string& id : journal_.ids_in(State::kWaiting)) {
    answers_.finish(id, answer_of(id, kInterrupted, kNotBegun));
  }
  if (!has_orphan_) remove_left_files();
}

// Or reports it, where that is not safe.
void Worker::run_again(const std::string& id) {
  try {
    Request request = parse_request(journal_.find(id)->payload, settings_.requires_signature);
    if (request.after_cut == AfterCut::kRunAgain) {
      say("request " + id + ": " + kCut + "; it is run again");
      enqueue(std::move(request), Deadline::never(), std::string(kCut) + "; it was run again");
      return;
    }
  } catch (const Refusal& refusal) {
    say("request " + id + ": " + refusal.what());  // accepted by an agent of another version
  }
  answers_.finish(id, answer_of(id, kInterrupted,
                                std::string(kCut) +
                                    ": look what has become of it, and ask again with a new id"));
}

void Worker::await_orphan() {
  if (!has_orphan_ || has_orphan(settings_.directory)) return;
  has_orphan_ = false;
  remove_left_files();
}

// Of requests that are not run again.
void Worker::remove_left_files() const {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(settings_.directory + "/files", error)) {
    const std::string name = entry.path().filename();
    const auto is_of = [&](const Waiting& each) {
      return name.starts_with(each.request.id + ".tbx");
    };
    const std::deque<Waiting>& waiting = lanes_[1].waiting;
    if (std::none_of(waiting.begin(), waiting.end(), is_of)) fs::remove(entry.path(), error);
  }
}

bool Worker::is_idle() const {
  for (const Lane& lane : lanes_) {
    if (lane.job != nullptr) return false;
  }
  return true;
}

// What was answered is sent, if the broker takes it.
bool Worker::has_ended() {
  if (!is_ending_ || !is_idle()) return false;
  if (!end_.is_set()) end_ = Deadline::after(kLastWordsMs);
  return !outbox_.is_sending() || end_.passed();
}

bool Worker::run() {
  while (!has_ended()) {
    wait();
    try {
      take_records();
    } catch (const ChannelClosed&) {
      say("the process that speaks to the broker has ended");
      lose_link();
    }
    facts_.step();
    await_orphan();
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
  Deadline due = facts_.due();
  if (channel_.has_received()) due = Deadline::after(0);
  if (has_orphan_) due = Deadline::sooner(due, Deadline::after(kBetweenLooksMs));
  due = Deadline::sooner(due, end_);
  const int ready =
      poll(files.data(), files.size(), Deadline::sooner(due, idle_memory_.due()).remaining_ms());
  if (ready < 0) return;
  idle_memory_.step(ready > 0);
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
  outbox_.on_lost(false);
}

void Worker::take_records() {
  if (has_records_) channel_.receive();
  while (const std::optional<Record> record = channel_.next()) take(*record);
}

void Worker::take(const Record& record) {
  const std::string& what = record.front();
  if (what == kConnected) {
    say("connected to the broker " + settings_.broker.name() + " as " + settings_.device);
    has_warned_ = false;
    facts_.tell_system();
    outbox_.on_connected();
  } else if (what == kLost && record.size() == 3) {
    say(record[1]);
    outbox_.on_lost(record[2] == "1");
  } else if (what == kDelivered) {
    outbox_.on_delivered();
  } else if (what == kNotTaken) {
    const std::string topic = outbox_.on_not_taken();
    if (!std::exchange(has_warned_, true)) {
      say("the broker does not let this board publish to '" + topic +
          "': 'device' must be the name in its certificate, or of its user; see the broker's "
          "access file");
    }
  } else if (what == kTooLong) {
    say("what is to be published is longer than the broker takes");
    outbox_.on_too_long();
  } else if (what == kRequested && record.size() == 5) {
    take_request(record);
  } else {
    throw ChannelClosed();
  }
}

void Worker::take_request(const Record& record) {
  const ReturnAddress asker = {.topic = record[2], .correlation = record[3]};
  const std::string own = fleet::topic_of(settings_.device, fleet::kAnswer);
  if (!asker.topic.starts_with(own) || !fleet::is_name(asker.topic.substr(own.size()))) {
    say("a request is ignored: its response topic '" + asker.topic + "' is not '" + own +
        "OPERATOR'");
    return;
  }
  const double seconds_left = record[4].empty() ? 0 : std::strtod(record[4].c_str(), nullptr);
  try {
    accept(record[1], asker, seconds_left);
  } catch (const Refusal& refusal) {
    answers_.reply(asker, answer_of(id_in(record[1]), kRefused, refusal.what()));
  } catch (const std::runtime_error& error) {
    answers_.reply(asker,
                   answer_of(id_in(record[1]), kRefused,
                             std::string("the request cannot be recorded: ") + error.what()));
  }
}

// seconds_left  of the time in which the broker has kept it; 0 where that is not limited.
void Worker::accept(const std::string& payload, const ReturnAddress& asker, double seconds_left) {
  Request request = parse_request(payload, settings_.requires_signature);
  const std::string id = request.id;
  if (journal_.find(id) != nullptr) return ask_again(request, asker);
  if (is_ending_) throw Refusal("the agent is being stopped");
  const Lane& lane = lane_of(request);
  if (lane.waiting.size() >= kMostWaiting) {
    throw Refusal("the queue is full: " + std::to_string(kMostWaiting) +
                  " requests are waiting; try again later");
  }
  const double seconds =
      seconds_left > 0 ? std::min(seconds_left, request.seconds) : request.seconds;
  journal_.add(id, payload, request.work, asker);
  enqueue(std::move(request), Deadline::after_seconds(seconds), "");
}

// It is not run again, but everybody who asks is answered.
void Worker::ask_again(const Request& request, const ReturnAddress& asker) {
  const JournalEntry& known = *journal_.find(request.id);
  if (known.work != request.work) {
    throw Refusal("id '" + request.id + "' is that of another request");
  }
  if (known.state >= JournalEntry::State::kAnswered) {
    answers_.reply(asker, Json::parse(known.answer));
    return;
  }
  // A broker may send it twice.
  if (std::find(known.askers.begin(), known.askers.end(), asker) != known.askers.end()) return;
  if (known.askers.size() >= kMostAskers) {
    throw Refusal("the request is running, and " + std::to_string(kMostAskers) +
                  " wait for its answer already; try again later");
  }
  journal_.add_asker(request.id, asker);
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
    answers_.finish(id, *answer);
  }
  if (has_orphan_ && &lane == &packages_and_flash()) return;
  while (lane.job == nullptr && !lane.waiting.empty() && !is_ending_) start(lane);
}

void Worker::start(Lane& lane) {
  Waiting next = std::move(lane.waiting.front());
  lane.waiting.pop_front();
  const std::string id = next.request.id;
  if (next.expires.passed()) {
    answers_.finish(
        id, answer_of(id, kExpired, "the request came or waited too long, and was not run"));
    return;
  }
  try {
    make_directory(settings_.directory + "/files");
    if (next.note.empty()) {
      journal_.start(id);
    } else {
      next.note += words_of_unfinished(packages_root_);
    }
    lane.job =
        std::make_unique<Job>(std::move(next.request), settings_, std::move(next.note),
                              [this](const Json& json) { outbox_.show(fleet::payload_of(json)); });
  } catch (const std::runtime_error& error) {
    answers_.finish(id, answer_of(id, kFailed, error.what()));
  }
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
