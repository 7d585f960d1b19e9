#include "manager/manager_client.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "process/exit_status.h"
#include "tarvio/com.h"
#include "terminal/output.h"

namespace client {

namespace {

constexpr char kLastWords[] =
    "tarvio: no answer from the manager in time: it may be busy (--timeout SECONDS waits longer)\n";

// A signal handler may call next to nothing.
void give_up(int /*signal*/) {
  (void)!write(STDERR_FILENO, kLastWords, sizeof kLastWords - 1);
  _exit(kTimeout);
}

void set_timer(double seconds) {
  itimerval timer = {};
  timer.it_value.tv_sec = static_cast<time_t>(seconds);
  timer.it_value.tv_usec =
      static_cast<suseconds_t>((seconds - static_cast<double>(timer.it_value.tv_sec)) * 1e6);
  // A timer of nothing at all would never ring.
  if (seconds > 0 && timer.it_value.tv_sec == 0 && timer.it_value.tv_usec == 0) {
    timer.it_value.tv_usec = 1;
  }
  (void)setitimer(ITIMER_REAL, &timer, nullptr);
}

void unblock(int signal) {
  sigset_t signals;
  (void)sigemptyset(&signals);
  (void)sigaddset(&signals, signal);
  (void)sigprocmask(SIG_UNBLOCK, &signals, nullptr);
}

// While it lives, the process ends when the time is over. A signal, because connecting waits while
// the manager's backlog is full, and no call of the exchange takes a time limit.
class Deadline {
 public:
  explicit Deadline(double seconds) : is_set_(seconds > 0) {
    if (!is_set_) return;
    struct sigaction action = {};
    action.sa_handler = give_up;
    (void)sigaction(SIGALRM, &action, nullptr);
    unblock(SIGALRM);  // the parent may have left it blocked
    set_timer(seconds);
  }
  ~Deadline() {
    if (is_set_) set_timer(0);
  }
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

 private:
  bool is_set_;
};

// The library hands out an unconnected socket when nobody listens.
bool is_connected(int fd) {
  sockaddr_storage address = {};
  socklen_t size = sizeof address;
  return getpeername(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0;
}

// Reads to the end of data. Not by tq_receive_com, which cuts long lines into pieces and would so
// lose count of the three lines of a status.
int read_to_end(int fd, std::string& bytes) {
  std::array<char, 2048> buffer;
  while (true) {
    const ssize_t count = recv(fd, buffer.data(), buffer.size(), 0);
    if (count == 0) return 0;
    if (count > 0) {
      bytes.append(buffer.data(), static_cast<size_t>(count));
    } else if (errno != EINTR) {
      return errno;
    }
  }
}

}  // namespace

Answer ask_manager(const char* command, const char* name, double timeout_seconds) {
  const Deadline deadline(timeout_seconds);
  Answer answer;
  const int fd = tq_request_com(TQ_COM_SOCKET_PATH, command, name == nullptr ? 0 : 1, &name);
  if (fd < 0) {
    answer.error = errno;
    return answer;
  }
  answer.manager_found = is_connected(fd);
  if (answer.manager_found) answer.error = read_to_end(fd, answer.bytes);
  (void)tq_socket_close(fd);
  return answer;
}

int report_exchange(const Answer& answer) {
  if (!answer.manager_found && answer.error == 0) {
    complain("no manager answers on " TQ_COM_SOCKET_PATH ": is tarviod running?");
    return kNoManager;
  }
  if (answer.error != 0) {
    const char* what =
        answer.manager_found ? "the connection to the manager broke: " : "cannot make a socket: ";
    complain(std::string(what) + strerror(answer.error));
    return kFailed;
  }
  return kDone;
}

}  // namespace client
