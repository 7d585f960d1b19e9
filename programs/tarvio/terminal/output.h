// Standard output and standard error.
#ifndef TARVIO_CLIENT_TERMINAL_OUTPUT_H
#define TARVIO_CLIENT_TERMINAL_OUTPUT_H

#include <cstddef>
#include <string_view>

namespace client {

// Writes to standard output in one piece; complains, but only once, and returns false from then on
// when that failed.
bool print(std::string_view text) noexcept;

// From now on print() writes nothing.
void silence_output() noexcept;

// Writes one line, the name of the program and the message made printable, to standard error;
// without the memory for that, that there is none.
void complain(std::string_view message) noexcept;

// Whether standard output is a terminal that can be drawn on.
bool is_screen();

struct ScreenSize {
  size_t columns;
  size_t rows;

  bool operator==(const ScreenSize&) const = default;
};

// Of that terminal at this moment: its window may change. Room for anything where it does not say.
// What must not wrap leaves the last column free, at which some terminals do.
ScreenSize screen_size();

// Whether it is one that should show colours.
bool wants_colour();

}  // namespace client

#endif
