// One input for the log monitor: a text that may be a log.
#ifndef TARVIO_FUZZ_LOG_INPUT_H
#define TARVIO_FUZZ_LOG_INPUT_H

#include <string>

namespace tarvio_fuzz {

// Parses every line, and the whole text as one. Returns what the library did wrong, or an empty
// text.
std::string check_lines(const std::string& log);

// Does the same, then reads the whole text as a log, from its beginning and after each of some of
// its lines.
std::string check_log(const std::string& log);

}  // namespace tarvio_fuzz

#endif
