#include <string.h>

#include "base/file_type.h"
#include "base/line_reader.h"
#include "base/owners.h"
#include "tarvio/conf.h"
#include "tarvio/text.h"
#include "util/log_macros.h"

using tarvio::Conf;

namespace {

constexpr char kSeparators[] = ": ";
// Far more than any package has: each is compared with all before it.
constexpr int32_t kMaxPairs = 10000;

// Stores the first two words of a line as name and value: only fields of one word are ever looked
// up (oddity 24). False when the line holds no pair.
bool store_line(tq_conf& conf, char* line) {
  tq_chop(line);
  if (strlen(line) <= 1 || strstr(line, kSeparators) == nullptr) return false;
  char* rest = nullptr;
  const char* name = strtok_r(line, kSeparators, &rest);
  char* value = name == nullptr ? nullptr : strtok_r(nullptr, kSeparators, &rest);
  if (value == nullptr) return false;
  (void)tq_conf_write(&conf, name, tq_chop(value));  // without memory it is left out (oddity 30)
  return true;
}

}  // namespace

tq_conf* tq_conf_open(const char* path) {
  if (path == nullptr) return nullptr;
  TQ_DEBUG("%s: open control file name.", path);
  Conf conf = tarvio::make_conf();
  if (conf == nullptr) {
    TQ_DEBUG("%s: malloc error ", "tq_conf_open");
    return nullptr;
  }
  // Before it is opened: opening a pipe waits for a writer.
  if (!tarvio::is_control_file(path)) return nullptr;
  const tarvio::File file(fopen(path, "rbe"));
  if (file == nullptr) {
    TQ_DEBUG("%s: fopen error %s ", "tq_conf_open", path);
    return nullptr;
  }

  bool found = false;
  tarvio::PieceReader line(fileno(file.get()));  // a longer line counts as several (oddity 25)
  while (conf->count < kMaxPairs && line.next()) {
    if (store_line(*conf, line.text())) found = true;
  }
  return found ? conf.release() : nullptr;  // unlike tq_conf_open2 (oddity 26)
}
