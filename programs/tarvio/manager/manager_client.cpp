#include "manager/manager_client.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "base/pipe.h"
#include "process/failure.h"
#include "tarvio/com.h"

namespace client {

namespace {

constexpr char kLastWords[] =
    "tarvio: no answer from the manager in time, it may be busy; use --timeout SECONDS to wait "
    "longer\n";

// Only what a signal handler may call.
void give_up(int /*signal*/) {
  (void)!write(STDERR_FILENO, kLastWords, sizeof kLastWords - 1);
  _exit(kTimeout);
}

void set_timer(double seconds) {
  itimerval timer = {};
  timer.it_value.tv_sec = static_cast<time_t>(seconds);
  timer.it_value.tv_usec =
      static_cast<suseconds_t>((seconds - static_cast<double>(timer.it_value.tv_sec)) * 1e6);
  // A timer of zero would never fire.
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

// While it lives, the process ends when the time is over. A signal, because connecting blocks while
// the manager's backlog is full, and the library's call has no time limit.
class Alarm {
 public:
  explicit Alarm(double seconds) : is_set_(seconds > 0) {
    if (!is_set_) return;
    struct sigaction action = {};
    action.sa_handler = give_up;
    (void)sigaction(SIGALRM, &action, nullptr);
    unblock(SIGALRM);  // the parent may have left it blocked
    set_timer(seconds);
  }
  ~Alarm() {
    if (is_set_) set_timer(0);
  }
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

 private:
  bool is_set_;
};

// The library hands out an unconnected socket when there is no listener (oddity 116).
bool is_connected(int fd) {
  sockaddr_storage address = {};
  socklen_t size = sizeof address;
  return getpeername(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0;
}

// Reads to the end of data. Not by tq_receive_com, which cuts long lines into pieces and would lose
// count of the three lines of a status.
int read_to_end(int fd, std::string& bytes) {
  std::array<char, 2048> buffer;
  while (true) {
    const ssize_t count = tarvio::read_some(fd, buffer);
    if (count <= 0) return count == 0 ? 0 : errno;
    bytes.append(buffer.data(), static_cast<size_t>(count));
  }
}

}  // namespace

Answer ask_manager(const char* command, const char* name, double timeout_seconds) {
  const Alarm alarm(timeout_seconds);
  const int fd = tq_request_com(TQ_COM_SOCKET_PATH, command, name == nullptr ? 0 : 1, &name);
  if (fd < 0) throw Failure::of_system("cannot make a socket");
  Answer answer;
  const bool is_manager_there = is_connected(fd);
  if (is_manager_there) answer.error = read_to_end(fd, answer.bytes);
  (void)tq_socket_close(fd);
  if (is_manager_there) return answer;
  if (faccessat(AT_FDCWD, TQ_COM_SOCKET_PATH, W_OK, AT_EACCESS) != 0 && errno == EACCES) {
    throw Failure(EACCES, "no permission to use " TQ_COM_SOCKET_PATH "; run tarvio as root");
  }
  throw Failure(ENOTCONN, "no manager answers on " TQ_COM_SOCKET_PATH "; is tarviod running?",
                kNoManager);
}

std::string broken_off(const Answer& answer) {
  if (answer.error == 0) return "";
  return std::string("the connection to the manager broke: ") + strerror(answer.error);
}

}  // namespace client
