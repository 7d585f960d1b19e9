#include <string.h>

#include "util/log_macros.h"
#include "util/tq_load_conf/conf_owner.h"

using tarvio::Conf;

namespace {

constexpr char kFunction[] = "tq_conf_open2";
constexpr size_t kGrowth = 1024;
constexpr char kBlanks[] = " \t";

enum class Reading { kLine, kEnd, kOutOfMemory };

// A line of any length; its buffer is used again for the next one.
class Line {
 public:
  Reading read(FILE* file) {
    length_ = 0;
    int byte = getc_unlocked(file);
    if (byte == EOF) return Reading::kEnd;
    for (; byte != EOF && byte != '\n' && byte != '\r'; byte = getc_unlocked(file)) {
      if (!append(static_cast<char>(byte))) return Reading::kOutOfMemory;
    }
    if (byte == '\r') {
      const int next = getc_unlocked(file);
      if (next != '\n' && next != EOF) ungetc(next, file);
    }
    return append('\0') ? Reading::kLine : Reading::kOutOfMemory;
  }

  char* text() { return buffer_.get(); }

 private:
  bool append(char byte) {
    if (length_ == size_) {
      void* grown = realloc(buffer_.get(), size_ + kGrowth);
      if (grown == nullptr) return false;
      (void)buffer_.release();
      buffer_.reset(static_cast<char*>(grown));
      size_ += kGrowth;
    }
    buffer_.get()[length_++] = byte;
    return true;
  }

  tarvio::CString buffer_;
  size_t length_ = 0;
  size_t size_ = 0;
};

char* skip_blanks(char* text) { return text + strspn(text, kBlanks); }

// The last word of a text, cut behind its end; each step to a further word is reported before it is
// made. The last word counts on purpose.
char* last_word(char* text, const char* what, int number) {
  char* word = skip_blanks(text);
  while (true) {
    char* end = word + strcspn(word, kBlanks);
    char* next = skip_blanks(end);
    if (*next == '\0') {
      *end = '\0';
      return word;
    }
    TQ_DEBUG("%s: Line[%d]: next %s = [%s] ", kFunction, number, what, word);
    word = next;
  }
}

// False when the line has text but no delimiter.
bool store_line(tq_conf& conf, char* line, int number) {
  TQ_DEBUG("%s: Line data[%d] = [%s] ", kFunction, number, line);
  line[strcspn(line, "#;")] = '\0';
  char* text = skip_blanks(line);
  if (*text == '\0') return true;
  char* colon = strchr(text, ':');
  if (colon == nullptr) {
    TQ_DEBUG("%s: LINE %d, delimiter(:) not found. ", kFunction, number);
    return false;
  }
  *colon = '\0';
  const char* key = last_word(text, "key", number);
  const char* value = last_word(colon + 1, "value", number);
  TQ_DEBUG("%s: Line[%d]: key = [%s], value = [%s] ", kFunction, number, key, value);
  (void)tq_conf_write(&conf, key, value);  // a pair without memory is left out
  return true;
}

}  // namespace

tq_conf* tq_conf_open2(const char* path) {
  if (path == nullptr) return nullptr;
  TQ_DEBUG("%s: conf open=[%s] ", kFunction, path);
  Conf conf = tarvio::make_conf();
  if (conf == nullptr) {
    TQ_DEBUG("%s: malloc error ", kFunction);
    return nullptr;
  }
  const tarvio::File file(fopen(path, "rbe"));
  if (file == nullptr) {
    TQ_DEBUG("%s: fopen error ", kFunction);
    return nullptr;
  }

  Line line;
  int number = 1;
  while (line.read(file.get()) == Reading::kLine) {
    if (!store_line(*conf, line.text(), number)) return nullptr;
    ++number;
  }
  if (ferror(file.get()) != 0) {  // a directory, say: it opens, but has no lines
    TQ_DEBUG("%s: read error ", kFunction);
    return nullptr;
  }
  return conf.release();
}
