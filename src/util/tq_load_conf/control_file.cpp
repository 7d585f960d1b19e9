#include <string.h>

#include "tarvio/file.h"
#include "tarvio/text.h"
#include "util/log_macros.h"
#include "util/tq_load_conf/conf_owner.h"

using tarvio::Conf;

namespace {

constexpr size_t kPieceSize = 256;  // a longer line counts as several
constexpr char kSeparators[] = ": ";

// Stores the first two words of a line as name and value; the value is one word on purpose, as only
// one-word fields are looked up. False when the line holds no pair.
bool store_line(tq_conf& conf, char* line) {
  tq_chop(line);
  if (strlen(line) <= 1 || strstr(line, kSeparators) == nullptr) return false;
  char* rest = nullptr;
  const char* name = strtok_r(line, kSeparators, &rest);
  char* value = name == nullptr ? nullptr : strtok_r(nullptr, kSeparators, &rest);
  if (value == nullptr) return false;
  (void)tq_conf_write(&conf, name, tq_chop(value));  // a pair without memory is left out
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
  int32_t is_file = 0;
  tq_file_exist(path, &is_file);
  if (is_file == 0) return nullptr;
  const tarvio::File file(fopen(path, "rbe"));
  if (file == nullptr) {
    TQ_DEBUG("%s: fopen error %s ", "tq_conf_open", path);
    return nullptr;
  }

  bool found = false;
  char line[kPieceSize];
  while (fgets(line, sizeof line, file.get()) != nullptr) {
    if (store_line(*conf, line)) found = true;
  }
  return found ? conf.release() : nullptr;
}
