#include "runtime/conf_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <string_view>

#include "base/line_cutter.h"
#include "base/line_reader.h"

namespace runtime {

namespace {

bool refuse(const char* place, const char* why, Mistake& mistake) {
  (void)snprintf(mistake.place, sizeof mistake.place, "%s", place);
  (void)snprintf(mistake.why, sizeof mistake.why, "%s", why);
  return false;
}

bool refuse_unreadable(const char* path, int error, Mistake& mistake) {
  if (error == EISDIR) return refuse(path, "is a directory: name a file", mistake);
  if (error == ENOMEM) return refuse(path, "out of memory: free some and try again", mistake);
  char why[sizeof mistake.why];
  (void)snprintf(why, sizeof why, "%s: %s", strerror(error),
                 error == ENOENT ? "write it" : "make it readable");
  return refuse(path, why, mistake);
}

bool is_blank(char byte) { return byte == ' ' || byte == '\t'; }

// Cuts the text after its last word. Empty when there is none.
const char* last_word(char* text) {
  char* end = text + strlen(text);
  while (end > text && is_blank(end[-1])) --end;
  *end = '\0';
  while (end > text && !is_blank(end[-1])) --end;
  return end;
}

bool store(const ConfFile& file, const char* key, const char* value, const char* line) {
  return tq_conf_write(file.pairs.get(), key, value) == 0 &&
         tq_conf_write(file.lines.get(), key, line) == 0;
}

// Takes lines apart as tq_conf_open2 does, which does not say in which line a pair stands, and
// takes the last of several words.
bool parse(const char* path, int fd, const ConfFile& file, Mistake& mistake, WordsBeforeKey words) {
  tarvio::ReadAhead ahead;
  tarvio::LineCutter line(tarvio::LineEnd::kAny);
  tarvio::LineReader reader(fd, ahead, line);
  char number[12];
  for (int count = 1; reader.next(); ++count) {
    char* text = line.text();
    (void)snprintf(number, sizeof number, "%d", count);
    if (line.line().find('\0') != std::string_view::npos) {
      return refuse_line(path, number, "NUL byte in the line: write the file as plain text",
                         mistake);
    }
    text[strcspn(text, "#;")] = '\0';
    if (text[strspn(text, " \t")] == '\0') continue;
    char* colon = strchr(text, ':');
    if (colon == nullptr) {
      return refuse_line(path, number, "no colon in the line: write KEY: VALUE", mistake);
    }
    *colon = '\0';
    char* value = colon + 1 + strspn(colon + 1, " \t");
    if (last_word(value) != value) {
      return refuse_line(path, number, "value of several words: write one word", mistake);
    }
    const char* key = last_word(text);
    if (words == WordsBeforeKey::kRefused && key != text + strspn(text, " \t")) {
      return refuse_line(path, number, "key of several words: write one word", mistake);
    }
    if (!store(file, key, value, number)) {
      return refuse_unreadable(path, ENOMEM, mistake);
    }
  }
  return reader.error() == 0 || refuse_unreadable(path, reader.error(), mistake);
}

// Of pairs with the same key the last one alone counts, so they are checked when all are known.
bool check(const char* path, const ConfFile& file, Complaint complaint_about, Mistake& mistake) {
  for (int i = 0; i < tq_count_variables(file.pairs.get()); ++i) {
    const char* complaint =
        complaint_about(tq_find_name(file.pairs.get(), i), tq_find_value(file.pairs.get(), i));
    if (complaint != nullptr)
      return refuse_line(path, tq_find_value(file.lines.get(), i), complaint, mistake);
  }
  return true;
}

}  // namespace

bool refuse_line(const char* path, const char* number, const char* why, Mistake& mistake) {
  char place[sizeof mistake.place];
  (void)snprintf(place, sizeof place, "%s:%s", path, number);
  return refuse(place, why, mistake);
}

bool read_conf_file(const char* path, MissingFile missing, Complaint complaint_about,
                    ConfFile& file, Mistake& mistake, WordsBeforeKey words) {
  const tarvio::Fd opened(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!opened.valid()) {
    return (errno == ENOENT && missing == MissingFile::kEmpty) ||
           refuse_unreadable(path, errno, mistake);
  }
  struct stat info = {};
  if (fstat(opened.get(), &info) == 0 && S_ISFIFO(info.st_mode)) {
    return refuse(path, "is a pipe: name a file", mistake);
  }
  return parse(path, opened.get(), file, mistake, words) &&
         check(path, file, complaint_about, mistake);
}

long number_of(const char* text, long maximum) {
  char* end = nullptr;
  errno = 0;
  const long number = strtol(text, &end, 10);
  const bool is_number = errno == 0 && text[0] >= '0' && text[0] <= '9' && *end == '\0';
  return is_number && number <= maximum ? number : -1;
}

}  // namespace runtime
