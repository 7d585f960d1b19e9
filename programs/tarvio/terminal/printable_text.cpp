#include "terminal/printable_text.h"

#include <algorithm>
#include <array>

namespace client {

namespace {

struct Range {
  char32_t first;
  char32_t last;
};

// Both kinds of control characters, invisible marks and what changes the direction of writing.
constexpr std::array<Range, 8> kUnsafe = {{{0x00, 0x1F},
                                           {0x7F, 0x9F},
                                           {0xAD, 0xAD},
                                           {0x200B, 0x200F},
                                           {0x2028, 0x202E},
                                           {0x2060, 0x206F},
                                           {0xFEFF, 0xFEFF},
                                           {0xE0000, 0xE007F}}};

// Marks that are drawn over the character before them.
constexpr std::array<Range, 7> kCombining = {{{0x300, 0x36F},
                                              {0x483, 0x489},
                                              {0x1AB0, 0x1AFF},
                                              {0x1DC0, 0x1DFF},
                                              {0x20D0, 0x20FF},
                                              {0xFE00, 0xFE0F},
                                              {0xFE20, 0xFE2F}}};

// East Asian wide and fullwidth characters, and pictographs.
constexpr std::array<Range, 13> kWide = {{{0x1100, 0x115F},
                                          {0x2E80, 0x303E},
                                          {0x3041, 0x33FF},
                                          {0x3400, 0x4DBF},
                                          {0x4E00, 0x9FFF},
                                          {0xA000, 0xA4CF},
                                          {0xA960, 0xA97F},
                                          {0xAC00, 0xD7A3},
                                          {0xF900, 0xFAFF},
                                          {0xFE30, 0xFE6F},
                                          {0xFF00, 0xFF60},
                                          {0x1F300, 0x1FAFF},
                                          {0x20000, 0x3FFFD}}};

template <size_t Size>
bool is_in(const std::array<Range, Size>& ranges, char32_t code) {
  return std::any_of(ranges.begin(), ranges.end(), [code](const Range& range) {
    return code >= range.first && code <= range.last;
  });
}

struct Character {
  char32_t code;
  size_t size;  // in bytes; 0 when the text does not begin with valid UTF-8
};

struct Lead {
  unsigned char mask;
  unsigned char bits;
  size_t size;
  char32_t lowest;  // a code that fits into fewer bytes is not valid
};

constexpr std::array<Lead, 4> kLeads = {{
    {0x80, 0x00, 1, 0},
    {0xE0, 0xC0, 2, 0x80},
    {0xF0, 0xE0, 3, 0x800},
    {0xF8, 0xF0, 4, 0x10000},
}};

bool is_scalar(char32_t code) { return code < 0xD800 || (code > 0xDFFF && code <= 0x10FFFF); }

// The first character of a text that is not empty.
Character decode(std::string_view text) {
  constexpr Character kInvalid = {0, 0};
  const auto first = static_cast<unsigned char>(text.front());
  const auto* const lead = std::find_if(kLeads.begin(), kLeads.end(), [first](const Lead& each) {
    return (first & each.mask) == each.bits;
  });
  if (lead == kLeads.end() || lead->size > text.size()) return kInvalid;
  char32_t code = first & static_cast<unsigned char>(~lead->mask);
  for (const char byte : text.substr(1, lead->size - 1)) {
    const auto next = static_cast<unsigned char>(byte);
    if ((next & 0xC0) != 0x80) return kInvalid;
    code = code << 6 | (next & 0x3F);
  }
  if (code < lead->lowest || !is_scalar(code)) return kInvalid;
  return {code, lead->size};
}

void append_escaped(std::string& shown, std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    shown += "\\x";
    shown += kDigits[value >> 4];
    shown += kDigits[value & 0x0F];
  }
}

size_t width_of(char32_t code) {
  if (code < kCombining.front().first) return 1;
  if (is_in(kCombining, code)) return 0;
  return is_in(kWide, code) ? 2 : 1;
}

// Takes a character off the text; the columns that it takes.
size_t take_character(std::string_view& text) {
  const Character character = decode(text);
  text.remove_prefix(std::max<size_t>(character.size, 1));
  return character.size == 0 ? 1 : width_of(character.code);
}

}  // namespace

std::string printable(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  while (!text.empty()) {
    const Character character = decode(text);
    const std::string_view bytes = text.substr(0, std::max<size_t>(character.size, 1));
    if (character.size == 0 || is_in(kUnsafe, character.code)) {
      append_escaped(shown, bytes);
    } else {
      shown += bytes;
    }
    text.remove_prefix(bytes.size());
  }
  return shown;
}

size_t display_width(std::string_view text) {
  size_t width = 0;
  while (!text.empty()) width += take_character(text);
  return width;
}

std::string shortened(std::string_view text, size_t columns) {
  constexpr std::string_view kMark = "...";
  if (display_width(text) <= columns) return std::string(text);
  size_t room = columns - std::min(columns, kMark.size());
  std::string_view rest = text;
  for (std::string_view next = rest; !next.empty(); rest = next) {
    const size_t width = take_character(next);
    if (width > room) break;
    room -= width;
  }
  return std::string(text.substr(0, text.size() - rest.size())).append(kMark.substr(0, columns));
}

}  // namespace client
