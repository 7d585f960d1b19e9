// One input for the log monitor: text that may be a log.
#ifndef TARVIO_FUZZ_LOG_INPUT_H
#define TARVIO_FUZZ_LOG_INPUT_H

#include <string>

namespace tarvio_fuzz {

// Takes every line apart, and the whole as one. Empty, or what the library did wrong.
std::string check_lines(const std::string& log);

// The same, and then reads the whole as a log, from its begin and from behind each of
// some of its lines. Empty, or what the library did wrong.
std::string check_log(const std::string& log);

}  // namespace tarvio_fuzz

#endif
