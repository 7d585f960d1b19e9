// Replies to a client: the library's calls, and the readers of tarvio and of the headers for C++.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "fuzzer.h"
#include "manager/manager_reply.h"
#include "models.h"
#include "support/com/sockets.h"
#include "support/hooks/got_hook.h"
#include "tarvio/client.h"
#include "tarvio/com.h"
#include "tarvio/manager.hpp"
#include "tarvio/status.h"

namespace tarvio_fuzz {
namespace {

using tarvio_test::Socket;

constexpr size_t kPieceBytes = 254;
constexpr size_t kMostBytes = 1 << 16;  // what a socket holds at once
constexpr char kLineEnds[] = "\n\r";

// A manager that gives one reply, to all who connect. One at a time.
class OneReply {
 public:
  explicit OneReply(const std::string& reply) {
    ends_.first.send(reply);
    ends_.first.end_sending();
    connected_ = client_fd();
  }

  int client_fd() const { return ends_.second.fd(); }

 private:
  static int connect_to(int fd, const sockaddr* /*address*/, socklen_t /*length*/) {
    return dup2(connected_, fd) == fd ? 0 : -1;
  }

  static inline int connected_ = -1;
  std::pair<Socket, Socket> ends_ = tarvio_test::socket_pair();
  const tarvio_test::Hook<int (*)(int, const sockaddr*, socklen_t)> connect_{"connect", connect_to};
};

struct Record {
  std::string name;
  int32_t number = 0;
  std::string detail;

  bool operator==(const Record&) const = default;
};

int32_t clamped(const std::string& text) {
  using Limits = std::numeric_limits<int32_t>;
  const long number = std::strtol(text.c_str(), nullptr, 10);
  return static_cast<int32_t>(std::clamp<long>(number, Limits::min(), Limits::max()));
}

std::string check_statuses(const std::string& bytes) {
  const Texts lines = pieces_of(bytes, kPieceBytes, kLineEnds);
  std::vector<Record> expected;
  for (size_t at = 0; at + 2 < lines.size(); at += 3)
    expected.push_back({lines[at], clamped(lines[at + 1]), lines[at + 2]});
  const OneReply reply(bytes);
  tq_list_t* list = tq_list_create();
  if (tq_lib_list_all_status(list) != 0) return "the statuses were not read";
  std::vector<Record> read;
  for (void* at = tq_list_first(list); at != nullptr; at = tq_list_next(list)) {
    const auto* status = static_cast<const tq_status*>(at);
    read.push_back({status->name, status->id, status->detail});
  }
  tq_status_list_free(list);
  return read == expected ? "" : "other statuses";
}

std::string check_lines(const std::string& bytes) {
  Texts expected = pieces_of(bytes, kPieceBytes, kLineEnds);
  for (std::string& line : expected) line = chopped(line);
  const OneReply reply(bytes);
  tq_list_t* list = tq_list_create();
  errno = 0;
  const int code = tq_receive_com(reply.client_fd(), list);
  const bool is_same = take_strings(list) == expected;
  return code == 0 && is_same ? "" : "other lines";
}

// Both take what is whole; of one that is not, tarvio keeps the status before the cut as well.
std::string check_readers(const std::string& bytes) {
  const client::StatusReply reply = client::parse_statuses(bytes);
  const OneReply manager(bytes);
  std::error_code error;
  const std::vector<tarvio::Status> statuses = tarvio::Manager().statuses(error);
  if (reply.complete != !error) return "whole for one reader alone";
  const size_t rest = reply.statuses.size() - std::min(reply.statuses.size(), statuses.size());
  if (statuses.size() > reply.statuses.size() || rest > (reply.complete ? 0 : 1))
    return "another number of statuses";
  for (size_t at = 0; at < statuses.size(); ++at) {
    const client::Status& other = reply.statuses[at];
    if (statuses[at].name != other.name ||
        static_cast<int32_t>(statuses[at].state) != other.state ||
        statuses[at].detail != other.detail)
      return "another status";
  }
  return "";
}

std::string check_code(const std::string& bytes) {
  const std::optional<int32_t> code = client::parse_result_code(bytes);
  if (!code) return "";
  const std::string digits = bytes.substr(0, bytes.find('\n'));
  const std::string ends = bytes.substr(digits.size());
  return clamped(digits) == *code && (ends == "\n" || ends == "\n\n") ? "" : "no such code";
}

std::string check_reply(const std::string& bytes) {
  if (bytes.size() > kMostBytes) return "";
  std::string wrong;
  for (const auto check : {check_statuses, check_lines, check_readers, check_code})
    if (wrong.empty()) wrong = check(bytes);
  return wrong;
}

}  // namespace

const Fuzzer kReply = {.corpus = "reply", .check = check_reply};

}  // namespace tarvio_fuzz
