// Configuration files: the library's reader, and that of the manager, which is stricter.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "fuzzer.h"
#include "memory_file.h"
#include "models.h"
#include "runtime/config.h"
#include "runtime/log_format.h"
#include "tarvio/conf.h"

namespace tarvio_fuzz {
namespace {

constexpr char kBlanks[] = " \t";
constexpr int kMaxSeconds = 86'400;

std::string last_word(std::string_view text) {
  const Texts words = words_of(text, kBlanks);
  return words.empty() ? "" : words.back();
}

// None when a line has no colon.
std::optional<Pairs> expected_of(const std::string& text) {
  Pairs pairs;
  for (const std::string& each : lines_of(text)) {
    std::string line = each;
    line.resize(std::min(line.find_first_of("#;"), line.size()));
    if (line.find_first_not_of(kBlanks) == std::string::npos) continue;
    const size_t colon = line.find(':');
    if (colon == std::string::npos) return std::nullopt;
    store(pairs, last_word(line.substr(0, colon)), last_word(line.substr(colon + 1)));
  }
  return pairs;
}

std::string check_manager(const std::string& path, const std::optional<Pairs>& expected) {
  runtime::Config config;
  runtime::Mistake mistake;
  if (!runtime::read_config(path.c_str(), config, mistake)) {
    const bool is_named = std::strncmp(mistake.place, path.c_str(), path.size()) == 0;
    return is_named && mistake.why[0] != '\0' ? "" : "refused without a reason";
  }
  if (!expected) return "the manager accepts what the library refuses";
  if (config.log()[0] != '/' && std::strcmp(config.log(), runtime::kJournal) != 0)
    return "a log without a path";
  if (config.log_period_s() < 0 || config.log_period_s() > kMaxSeconds) return "no such period";
  if (runtime::index_of(config.log_format(), runtime::kLogFormats) < 0) return "no such format";
  std::string wrong;
  size_t hooks = 0;
  config.each_hook([&](const char* text, const char* application, const char* line) {
    const auto pair = std::make_pair("hook." + std::string(text), std::string(application));
    if (std::find(expected->begin(), expected->end(), pair) == expected->end())
      wrong = "a hook that is not in the file";
    if (text[0] == '\0' || application[0] == '\0' || std::atoi(line) < 1) wrong = "half a hook";
    if (std::strlen(application) > runtime::kMaxApplicationBytes) wrong = "too long a name";
    ++hooks;
  });
  return hooks == config.hook_count() ? wrong : "hooks are not counted";
}

std::string check_config(const std::string& text) {
  const MemoryFile file(text);
  const std::optional<Pairs> expected = expected_of(text);
  tq_conf* const conf = tq_conf_open2(file.path().c_str());
  const bool is_refused = conf == nullptr;
  const Pairs pairs = take_pairs(conf);
  if (is_refused != !expected) return "refused, or not";
  if (expected && pairs != *expected) return "other pairs";
  return check_manager(file.path(), expected);
}

}  // namespace

const Fuzzer kConfig = {.corpus = "config", .check = check_config};

}  // namespace tarvio_fuzz
