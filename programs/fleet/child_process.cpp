#include "fleet/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "base/pipe.h"

namespace fleet {

namespace {

// More than what tarvio says of a thousand packages; the rest is not kept.
constexpr size_t kMaxTextBytes = size_t{512} << 10U;
constexpr int kBySignal = 128;

class FileActions {
 public:
  FileActions() { check(posix_spawn_file_actions_init(&actions_)); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  ~FileActions() { (void)posix_spawn_file_actions_destroy(&actions_); }

  void open_empty(int fd) {
    check(posix_spawn_file_actions_addopen(&actions_, fd, "/dev/null", O_RDONLY, 0));
  }
  void copy(int from, int to) { check(posix_spawn_file_actions_adddup2(&actions_, from, to)); }
  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  static void check(int error) {
    if (error != 0) throw std::runtime_error(std::strerror(error));
  }

  posix_spawn_file_actions_t actions_;
};

// The agent handles its signals by a descriptor; a program must get them.
class Attributes {
 public:
  Attributes() {
    sigset_t none;
    (void)sigemptyset(&none);
    (void)posix_spawnattr_init(&attributes_);
    (void)posix_spawnattr_setsigmask(&attributes_, &none);
    (void)posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
  }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  ~Attributes() { (void)posix_spawnattr_destroy(&attributes_); }
  [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

}  // namespace

std::string message_in(const ChildEnd& end, const std::string& program) {
  std::string message = end.errors;
  while (message.ends_with('\n')) message.pop_back();
  const std::string front = program + ": ";
  if (message.starts_with(front)) message.erase(0, front.size());
  return message;
}

ChildProcess::ChildProcess(const std::vector<std::string>& words,
                           std::function<void(std::string_view)> on_line)
    : on_line_(std::move(on_line)) {
  FileActions actions;
  const Attributes attributes;
  actions.open_empty(STDIN_FILENO);
  std::array<tarvio::Fd, kFiles> ends;
  for (size_t at = 0; at < kFiles; ++at) {
    tarvio::Pipe pipe;
    if (!pipe.valid() || fcntl(pipe.read_end.get(), F_SETFL, O_NONBLOCK) != 0) {
      throw std::runtime_error(std::strerror(errno));
    }
    streams_[at].fd = std::move(pipe.read_end);
    ends[at] = std::move(pipe.write_end);
    actions.copy(ends[at].get(), at == 0 ? STDOUT_FILENO : STDERR_FILENO);
  }
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  const int error =
      posix_spawnp(&pid_, argv.front(), actions.get(), attributes.get(), argv.data(), environ);
  if (error != 0) {
    pid_ = -1;
    throw std::runtime_error("cannot run '" + words.front() + "': " + std::strerror(error));
  }
}

ChildProcess::~ChildProcess() {
  if (pid_ < 0) return;
  (void)kill(pid_, SIGTERM);
  (void)tarvio::retried([this] { return waitpid(pid_, nullptr, 0); });
}

void ChildProcess::list(pollfd* files) const {
  for (size_t at = 0; at < kFiles; ++at) {
    files[at] = {.fd = streams_[at].fd.get(), .events = POLLIN, .revents = 0};
  }
}

void ChildProcess::read(Stream& stream) {
  std::array<char, 4096> room;
  while (stream.fd.valid()) {
    const ssize_t count = tarvio::read_some(stream.fd.get(), room);
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) {
      stream.fd.reset();
    } else if (stream.text.size() < kMaxTextBytes) {
      stream.text.append(room.data(), static_cast<size_t>(count));
    } else {
      stream.is_cut = true;
    }
  }
}

void ChildProcess::take_lines() {
  std::string& text = streams_[0].text;
  for (size_t end = 0; on_line_ && (end = text.find('\n')) != std::string::npos;) {
    on_line_(std::string_view(text).substr(0, end));
    text.erase(0, end + 1);
  }
}

std::optional<ChildEnd> ChildProcess::step() {
  for (Stream& stream : streams_) read(stream);
  take_lines();
  if (pid_ < 0 || streams_[0].fd.valid() || streams_[1].fd.valid()) return std::nullopt;
  int status = 0;
  (void)tarvio::retried([&] { return waitpid(pid_, &status, 0); });
  pid_ = -1;
  return ChildEnd{.status = WIFEXITED(status) ? WEXITSTATUS(status) : kBySignal + WTERMSIG(status),
                  .output = std::move(streams_[0].text),
                  .errors = std::move(streams_[1].text),
                  .is_cut = streams_[0].is_cut};
}

}  // namespace fleet
