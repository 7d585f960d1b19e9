// The words of the configuration for what a system log looks like.
#ifndef TARVIO_RUNTIME_LOG_FORMAT_H
#define TARVIO_RUNTIME_LOG_FORMAT_H

#include <string.h>

#include <array>

namespace runtime {

// In place of the path of a log file.
inline constexpr char kJournal[] = "journal";

// The forms of the lines of a log file, in the order of kLogFormats.
enum class LogFormat {
  kAuto,  // each line as it looks
  kBusybox,
  kTraditional,
  kIso,
  kRfc5424,
};

inline constexpr std::array<const char*, 5> kLogFormats = {"auto", "busybox", "traditional", "iso",
                                                           "rfc5424"};

// The levels of syslog(3), by their numbers.
inline constexpr std::array<const char*, 8> kSeverities = {"emerg",   "alert",  "crit", "err",
                                                           "warning", "notice", "info", "debug"};

// The place of a word among others, or -1.
template <size_t Count>
int index_of(const char* word, const std::array<const char*, Count>& words) {
  for (size_t i = 0; i < Count; ++i) {
    if (strcmp(word, words[i]) == 0) return static_cast<int>(i);
  }
  return -1;
}

}  // namespace runtime

#endif
