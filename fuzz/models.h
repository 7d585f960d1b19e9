// What the library should make of a text, in the plainest way.
#ifndef TARVIO_FUZZ_MODELS_H
#define TARVIO_FUZZ_MODELS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarvio/conf.h"
#include "tarvio/list.h"

namespace tarvio_fuzz {

using Texts = std::vector<std::string>;
using Pairs =
    std::vector<std::pair<std::string, std::string>>;  // in the order of their first names

// The lines of a text, in pieces of at most `most` bytes, as strings of C: what fgets makes of it.
// Any of the bytes in `ends` ends a line, and stays.
Texts pieces_of(const std::string& text, size_t most, std::string_view ends = "\n");
// The lines of a text, without their ends: line feeds, carriage returns or both. Strings of C as
// well.
Texts lines_of(const std::string& text);
// Without the line end, as tq_chop leaves it.
std::string chopped(std::string line);
// The words between the separators.
Texts words_of(std::string_view text, std::string_view separators);

// Replaces the value of a name, or appends a pair.
void store(Pairs& pairs, const std::string& name, const std::string& value);
// Of a file that was read; closes it.
Pairs take_pairs(tq_conf* conf);

// The strings of a list, which is freed with them.
Texts take_strings(tq_list_t* list);

}  // namespace tarvio_fuzz

#endif
