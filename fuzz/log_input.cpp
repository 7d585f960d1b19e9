// Lines of the system log, and its reader.
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "fuzzer.h"
#include "memory_file.h"
#include "models.h"
#include "support/repairs.h"
#include "tarvio/list.h"
#include "tarvio/log_monitor.h"

namespace tarvio_fuzz {
namespace {

constexpr size_t kPieceBytes = 254;

void set_hooks() {
  if (syslog_hook != nullptr) return;
  tq_setup_log_manager();
  for (const char* hook : {"clock", "[", " "}) tq_set_log_hook(const_cast<char*>(hook));
}

Texts after_last(const Texts& pieces, const std::string& known) {
  for (size_t at = pieces.size(); at > 0; --at) {
    if (pieces[at - 1] == known)
      return {pieces.begin() + static_cast<std::ptrdiff_t>(at), pieces.end()};
  }
  return pieces;
}

std::string check_read(const MemoryFile& file, const char* last, const Texts& expected) {
  const tarvio_test::Repairs repairs(TQ_REPAIR_PROCESSES);  // there are many inputs
  std::free(tq_last_syslog);
  tq_last_syslog = nullptr;
  tq_list_t* lines = tq_list_create();
  const int code = tq_log_read(("cat " + file.path()).c_str(), last, lines);
  waitpid(-1, nullptr, 0);
  const Texts read = take_strings(lines);
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

std::string check_lines(const std::string& log) {
  set_hooks();
  for (const std::string& piece : pieces_of(log, kPieceBytes)) {
    if (const std::string wrong = check_parse(piece); !wrong.empty()) return wrong;
  }
  return check_parse(log.c_str());
}

std::string check_log(const std::string& log) {
  std::string wrong = check_lines(log);
  if (!wrong.empty()) return wrong;
  const Texts pieces = pieces_of(log, kPieceBytes);
  const MemoryFile file(log);
  wrong = check_read(file, nullptr, pieces);
  // The first, the middle and the last one of the lines.
  for (size_t part = 0; wrong.empty() && !pieces.empty() && part <= 2; ++part) {
    const std::string& last = pieces[(pieces.size() - 1) * part / 2];
    wrong = check_read(file, last.c_str(), after_last(pieces, last));
  }
  return wrong;
}

}  // namespace

const Fuzzer kLog = {.corpus = "log", .check = check_log};
const Fuzzer kParse = {.corpus = "log", .check = check_lines};

}  // namespace tarvio_fuzz
