#include <string.h>

#include "base/line_reader.h"
#include "base/owners.h"
#include "tarvio/conf.h"
#include "util/log_macros.h"

using tarvio::Conf;

namespace {

constexpr char kFunction[] = "tq_conf_open2";
constexpr char kBlanks[] = " \t";

char* skip_blanks(char* text) { return text + strspn(text, kBlanks); }

// The last word of a text (oddity 27), cut off after its end. Each step to a further word is logged
// before it is made.
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
  line[strcspn(line, "#;")] = '\0';  // inside a value too (oddity 28)
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
  (void)tq_conf_write(&conf, key, value);  // without memory it is left out (oddity 30)
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

  tarvio::ReadAhead read_ahead;
  tarvio::LineCutter line(tarvio::LineEnd::kAny);
  tarvio::LineReader reader(fileno(file.get()), read_ahead, line);
  for (int number = 1; reader.next(); ++number) {
    if (!store_line(*conf, line.text(), number)) return nullptr;  // all of the file (oddity 29)
  }
  // What ended the reading does not count (oddity 30).
  return conf.release();
}
