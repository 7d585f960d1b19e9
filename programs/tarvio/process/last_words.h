// What a process can still say when it has no memory left.
#ifndef TARVIO_CLIENT_PROCESS_LAST_WORDS_H
#define TARVIO_CLIENT_PROCESS_LAST_WORDS_H

#include <exception>
#include <initializer_list>
#include <string_view>

namespace client {

// None of these needs memory.

// What went wrong, for people.
const char* cause_of(const std::exception& error) noexcept;

// Writes one line, put together from its parts.
void write_line(int fd, std::initializer_list<std::string_view> parts) noexcept;

// From now on an exception that nothing can catch, such as one that a destructor throws, ends the
// process with its cause on standard error and kFailed.
void report_uncaught_exceptions() noexcept;

}  // namespace client

#endif
