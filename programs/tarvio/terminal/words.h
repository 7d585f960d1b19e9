// Words for the numbers of the library.
#ifndef TARVIO_CLIENT_TERMINAL_WORDS_H
#define TARVIO_CLIENT_TERMINAL_WORDS_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace client {

struct Word {
  int32_t code;
  const char* text;
};

std::string state_word(int32_t state);
std::string category_word(int32_t code);
std::string subcategory_word(int32_t code);

// What a result code means.
std::string result_words(int32_t code);

// A number of bytes for people: "512 bytes", "1.5 KiB".
std::string size_words(uint64_t bytes);

// The code of a word in any case, or of its number; none for anything else.
std::optional<uint32_t> category_code(std::string_view word);
std::optional<uint32_t> subcategory_code(std::string_view word);

// All words, with their codes.
std::span<const Word> category_words();
std::span<const Word> subcategory_words();

// For people: "image (0), application (1), other (2)".
std::string choices_of(std::span<const Word> words);

}  // namespace client

#endif
