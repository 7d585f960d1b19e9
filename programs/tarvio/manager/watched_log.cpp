#include "manager/watched_log.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "manager/log_lines.h"
#include "process/failure.h"
#include "runtime/config.h"
#include "runtime/log_form.h"

namespace client {

namespace {

runtime::Config read_config() {
  runtime::Config config;
  runtime::Mistake mistake;
  if (runtime::read_config(nullptr, config, mistake)) return config;
  throw Failure(EINVAL, std::string(mistake.place) + ": " + mistake.why);
}

}  // namespace

WatchedLog configured_log() {
  const runtime::Config config = read_config();
  WatchedLog log = {.is_journal = strcmp(config.log(), runtime::kJournal) == 0,
                    .path = config.log(),
                    .format = config.log_format(),
                    .is_form_configured = strcmp(config.log_format(), runtime::kLogFormats[0]) != 0,
                    .hooks = static_cast<int>(config.hook_count()),
                    .is_disabled = config.log_period_s() == 0};
  config.each_hook([&](const char* text, const char* /*application*/, const char* /*line*/) {
    if (strcmp(config.level_of(text), runtime::Config::kNoLevel) == 0) {
      log.all_hooks_have_levels = false;
    }
  });
  return log;
}

LogForm form_of(const WatchedLog& log) {
  struct stat status = {};
  if (stat(log.path.c_str(), &status) != 0) throw Failure(errno, strerror(errno));
  if (!S_ISREG(status.st_mode)) throw Failure(EINVAL, "not a regular file");
  const auto format =
      static_cast<runtime::LogFormat>(runtime::index_of(log.format.c_str(), runtime::kLogFormats));
  runtime::FormJudge judge(log.all_hooks_have_levels);
  LogForm form;
  const auto see = [&](std::string_view text) {
    const runtime::UsualLine line(format, std::string(text).c_str());
    form.is_empty = false;
    judge.see(line.kind());
    if (line.kind() == runtime::LineKind::kOther) return;
    form.name = runtime::kLogFormats[static_cast<size_t>(line.format())];
  };
  if (!LogFile(log.path).read_new(see)) throw Failure(errno, strerror(errno));
  if (judge.complaint() != nullptr) form.complaint = judge.complaint();
  return form;
}

}  // namespace client
