// What the resident manager is asked for.
#ifndef TARVIO_MANAGER_HPP
#define TARVIO_MANAGER_HPP

#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "tarvio/com.h"
#include "tarvio/error.hpp"
#include "tarvio/status.h"

namespace tarvio {

// What a status says of an application.
enum class State : std::int32_t {
  kNormal = TQ_STATE_NORMAL,
  kWarning = TQ_STATE_THIRD,
  kError = TQ_STATE_ERROR
};

// A status that the manager keeps.
struct Status {
  std::string name;              // of an application: that of its package
  State state = State::kNormal;  // a host may set other numbers
  std::string detail;            // explains the state
};

namespace detail {

// One connection to the manager, for one request.
class Connection {
 public:
  Connection() noexcept : fd_(tq_socket_create_unix_sock()) {}
  ~Connection() {
    if (fd_ >= 0) (void)tq_socket_close(fd_);
  }
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  // Not by tq_request_com and tq_receive_com: these wait without end, do not say that nobody listens,
  // and cut long lines into pieces.
  std::error_code exchange(const std::string &request, std::chrono::milliseconds timeout,
                           std::string &reply) const {
    if (fd_ < 0) return error_of(errno);
    set_timeout(timeout);
    if (tq_socket_connect_unix_sock(fd_, TQ_COM_SOCKET_PATH) != 0) {
      return error_of(errno == ENOENT || errno == ECONNREFUSED ? ENOTCONN : cause());
    }
    const ssize_t sent =
        retry([&] { return ::send(fd_, request.data(), request.size(), MSG_NOSIGNAL); });
    if (sent < 0) return error_of(cause());
    if (static_cast<std::size_t>(sent) != request.size()) return error_of(ETIMEDOUT);
    (void)::shutdown(fd_, SHUT_WR);
    char buffer[1024];
    ssize_t count = 0;
    while ((count = retry([&] { return ::recv(fd_, buffer, sizeof buffer, 0); })) > 0) {
      reply.append(buffer, static_cast<std::size_t>(count));
    }
    return error_of(count < 0 ? cause() : 0);
  }

 private:
  // A negative time would be refused, and 0 waits forever: what is over is the least that is left.
  void set_timeout(std::chrono::milliseconds timeout) const noexcept {
    const auto count = timeout.count() < 0 ? 1 : timeout.count();
    timeval limit = {};
    limit.tv_sec = static_cast<decltype(limit.tv_sec)>(count / 1000);
    limit.tv_usec = static_cast<decltype(limit.tv_usec)>(count % 1000 * 1000);
    (void)::setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    (void)::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }

  // It shows as EAGAIN.
  static int cause() noexcept { return errno == EAGAIN ? ETIMEDOUT : errno; }

  template <class Call>
  static ssize_t retry(Call call) {
    ssize_t result = 0;
    do {
      result = call();
    } while (result < 0 && errno == EINTR);
    return result;
  }

  int fd_;
};

// Takes the first line, without its line feed, off a text; none when no line feed follows.
inline std::optional<std::string> take_line(std::string_view &text) {
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos) return std::nullopt;
  std::string line(text.substr(0, end));
  text.remove_prefix(end + 1);
  return line;
}

inline std::optional<std::int32_t> take_number(std::string_view &text) {
  const std::optional<std::string> line = take_line(text);
  if (!line) return std::nullopt;
  std::int32_t number = 0;
  const char *const end = line->data() + line->size();
  const auto [stopped_at, error] = std::from_chars(line->data(), end, number);
  if (error != std::errc() || stopped_at != end) return std::nullopt;
  return number;
}

}  // namespace detail

// Requests to the resident manager. The error is std::errc::not_connected when no manager runs,
// timed_out when it takes no request or sends nothing for the timeout, protocol_error when its reply is
// missing or truncated, as of one that has ended, or of another host than tarviod that does not know the
// request (see tq_set_com_words).
class Manager {
 public:
  // 0 waits forever, a negative timeout 1 ms.
  explicit Manager(std::chrono::milliseconds timeout = std::chrono::seconds(30)) noexcept
      : timeout_(timeout) {}

  // Start, or stop, the application with exactly this package name; std::errc::invalid_argument when the
  // manager knows none. Unlike those of tq_lib_start_app (oddity 124), the result is the manager's.
  std::error_code start(const std::string &name) const { return request("start_exact", name); }
  std::error_code stop(const std::string &name) const { return request("stop_exact", name); }

  // Start, or stop, every application. One that keeps failing may make this time out.
  std::error_code start_all() const { return request("start_all\n"); }
  std::error_code stop_all() const { return request("stop_all\n"); }

  // Makes the manager know what has been installed and removed.
  std::error_code refresh() const { return request("refresh_apps\n"); }

  // All statuses, or those of the applications. With an error, those that came before it.
  std::vector<Status> statuses(std::error_code &error) const { return list("status_all\n", error); }
  std::vector<Status> application_statuses(std::error_code &error) const {
    return list("status_app\n", error);
  }

 private:
  std::error_code request(const std::string &lines) const {
    std::string reply;
    const std::error_code error = detail::Connection().exchange(lines, timeout_, reply);
    if (error) return error;
    std::string_view rest = reply;
    return error_of(detail::take_number(rest).value_or(EPROTO));
  }
  // A name with a line end would be another one.
  std::error_code request(const char *word, const std::string &name) const {
    if (name.find_first_of("\n\r") != std::string::npos || !detail::is_c_string(name)) {
      return error_of(EINVAL);
    }
    return request(std::string(word) + '\n' + name + '\n');
  }
  std::vector<Status> list(const char *request, std::error_code &error) const {
    std::string reply;
    error = detail::Connection().exchange(request, timeout_, reply);
    std::vector<Status> statuses;
    for (std::string_view rest = reply; !rest.empty();) {
      std::optional<std::string> name = detail::take_line(rest);
      const std::optional<std::int32_t> state = detail::take_number(rest);
      std::optional<std::string> text = detail::take_line(rest);
      if (!name || !state || !text) {
        if (!error) error = error_of(EPROTO);
        break;
      }
      statuses.push_back({std::move(*name), static_cast<State>(*state), std::move(*text)});
    }
    return statuses;
  }

  std::chrono::milliseconds timeout_;
};

}  // namespace tarvio

#endif
