#include "terminal/words.h"

#include <strings.h>

#include <array>
#include <cstdio>
#include <new>

#include "base/owners.h"
#include "tarvio/client.h"
#include "tarvio/package.h"
#include "tarvio/status.h"

namespace client {

namespace {

constexpr std::array<Word, 3> kStates = {{
    {TQ_STATE_NORMAL, "normal"},
    {TQ_STATE_THIRD, "warning"},  // what a warning in the system log gives
    {TQ_STATE_ERROR, "error"},
}};

constexpr std::array<Word, 3> kCategories = {{
    {TQ_CATEGORY_IMAGE, "image"},
    {TQ_CATEGORY_APPLICATION, "application"},
    {TQ_CATEGORY_OTHER, "other"},
}};

constexpr std::array<Word, 5> kSubcategories = {{
    {TQ_SUBCATEGORY_NATIVE, "native"},
    {TQ_SUBCATEGORY_JAVA, "java"},
    {TQ_SUBCATEGORY_BROWSER, "browser"},
    {TQ_SUBCATEGORY_JSP, "jsp"},
    {TQ_SUBCATEGORY_OTHER, "other"},
}};

using Words = std::span<const Word>;

// A number without a word stands for itself.
std::string word_of(Words words, int32_t code) {
  for (const Word& word : words) {
    if (word.code == code) return word.text;
  }
  return std::to_string(code);
}

std::optional<uint32_t> code_of(Words words, std::string_view text) {
  const std::string wanted(text);
  for (const Word& word : words) {
    if (strcasecmp(wanted.c_str(), word.text) == 0 || wanted == std::to_string(word.code)) {
      return static_cast<uint32_t>(word.code);
    }
  }
  return std::nullopt;
}

}  // namespace

std::string state_word(int32_t state) { return word_of(kStates, state); }
std::string category_word(int32_t code) { return word_of(kCategories, code); }
std::string subcategory_word(int32_t code) { return word_of(kSubcategories, code); }

std::string result_words(int32_t code) {
  const tarvio::CString text(tq_lib_get_err_mes(code));
  if (text == nullptr) throw std::bad_alloc();
  // Some codes of the library have no text (oddity 7).
  return *text == '\0' ? "unknown error" : text.get();
}

std::string size_words(uint64_t bytes) {
  constexpr std::array<const char*, 4> kUnits = {"KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  double size = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  // What would be shown as 1024.0 is one of the next unit.
  for (; size >= 1023.95 && unit + 1 < kUnits.size(); ++unit) size /= 1024;
  std::array<char, 32> text;
  (void)snprintf(text.data(), text.size(), "%.1f %s", size, kUnits[unit]);
  return text.data();
}

std::optional<uint32_t> category_code(std::string_view word) { return code_of(kCategories, word); }
std::optional<uint32_t> subcategory_code(std::string_view word) {
  return code_of(kSubcategories, word);
}

std::span<const Word> category_words() { return kCategories; }
std::span<const Word> subcategory_words() { return kSubcategories; }

std::string choices_of(Words words) {
  std::string choices;
  for (const Word& word : words) {
    if (!choices.empty()) choices += ", ";
    choices.append(word.text).append(" (").append(std::to_string(word.code)).append(")");
  }
  return choices;
}

}  // namespace client
