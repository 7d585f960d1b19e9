#include "log_input.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tarvio/list.h"
#include "tarvio/log_monitor.h"

namespace tarvio_fuzz {
namespace {

constexpr size_t kPieceBytes = 254;

using Pieces = std::vector<std::string>;

// What fgets makes of the log, as strings of C.
Pieces pieces_of(const std::string& log) {
  Pieces pieces;
  for (size_t begin = 0; begin < log.size();) {
    const size_t end = log.find('\n', begin);
    const size_t line = (end == std::string::npos ? log.size() : end + 1) - begin;
    const size_t length = std::min(line, kPieceBytes);
    pieces.emplace_back(log.substr(begin, length).c_str());
    begin += length;
  }
  return pieces;
}

Pieces after_last(const Pieces& pieces, const std::string& known) {
  for (size_t at = pieces.size(); at > 0; --at) {
    if (pieces[at - 1] == known)
      return {pieces.begin() + static_cast<std::ptrdiff_t>(at), pieces.end()};
  }
  return pieces;
}

// Closes the two descriptors that a read leaves open, and waits for its command, as there are many
// inputs.
class FewDescriptors {
 public:
  FewDescriptors() : first_(dup(STDERR_FILENO)) { close(first_); }
  ~FewDescriptors() {
    close(first_);
    close(first_ + 1);
    waitpid(-1, nullptr, 0);
  }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  int first_;
};

class LogFile {
 public:
  explicit LogFile(const std::string& log) : fd_(memfd_create("log", 0)) {
    if (write(fd_, log.data(), log.size()) != static_cast<ssize_t>(log.size())) std::abort();
  }
  ~LogFile() { close(fd_); }
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  std::string command() const {
    return "cat /proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd_);
  }

 private:
  int fd_;
};

Pieces take_strings(tq_list_t* list) {
  Pieces strings;
  for (void* at = tq_list_first(list); at != nullptr; at = tq_list_next(list))
    strings.emplace_back(static_cast<const char*>(at));
  tq_list_free(list, 1);
  return strings;
}

std::string check_read(const LogFile& file, const char* last, const Pieces& expected) {
  const FewDescriptors few;
  std::free(tq_last_syslog);
  tq_last_syslog = nullptr;
  tq_list_t* lines = tq_list_create();
  const int code = tq_log_read(file.command().c_str(), last, lines);
  const Pieces read = take_strings(lines);
  if (code != 0) return "the read returned " + std::to_string(code);
  if (read != expected) return "the read lost, added or changed lines";
  if (expected.empty() != (tq_last_syslog == nullptr)) return "a last line without new lines";
  if (!expected.empty() && expected.back() != tq_last_syslog) return "the last line is another one";
  return "";
}

std::string check_parse(const std::string& line) {
  // Of its exact size, so that a sanitizer sees a read past its end.
  char* exact = strdup(line.c_str());
  tq_syslog_line* parsed = tq_parse_syslog(exact);
  std::string wrong;
  if (std::string(exact) != line.c_str()) wrong = "the line was changed";
  if (parsed != nullptr) {
    const std::string ident = parsed->ident;
    const std::string message = parsed->message;
    if (parsed->level < -1 || parsed->level > 2) wrong = "no such level";
    if (ident.empty() || ident.find(':') != std::string::npos) wrong = "no ident";
    if (message.empty() || message.find('\n') != std::string::npos) wrong = "no message";
    if (line.find(ident + ":") == std::string::npos) wrong = "the ident is not in the line";
    if (line.find(message) == std::string::npos) wrong = "the message is not in the line";
    (void)tq_check_log_hook(parsed);
    std::free(parsed->ident);
    std::free(parsed->message);
    std::free(parsed);
  }
  std::free(exact);
  return wrong;
}

}  // namespace

std::string check_lines(const std::string& log) {
  for (const std::string& piece : pieces_of(log)) {
    if (const std::string wrong = check_parse(piece); !wrong.empty()) return wrong;
  }
  return check_parse(log.c_str());
}

std::string check_log(const std::string& log) {
  std::string wrong = check_lines(log);
  if (!wrong.empty()) return wrong;
  const Pieces pieces = pieces_of(log);
  const LogFile file(log);
  wrong = check_read(file, nullptr, pieces);
  // The first, the middle and the last one of the lines.
  for (size_t part = 0; wrong.empty() && !pieces.empty() && part <= 2; ++part) {
    const std::string& last = pieces[(pieces.size() - 1) * part / 2];
    wrong = check_read(file, last.c_str(), after_last(pieces, last));
  }
  return wrong;
}

}  // namespace tarvio_fuzz
