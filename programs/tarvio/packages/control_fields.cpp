#include "packages/control_fields.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

#include "base/flash_areas.h"
#include "base/line_cutter.h"
#include "base/owners.h"
#include "process/failure.h"
#include "process/text_pieces.h"
#include "tarvio/tbx.h"

namespace client {

namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr char kCategory[] = "TqPackageCategory";
constexpr char kSubcategory[] = "TqPackageSubCategory";
constexpr char kTarget[] = "TqDataTarget";
constexpr char kNameRule[] =
    "' must start with a letter or digit and contain only letters, digits and ";
constexpr char kApplication[] = "Application";
constexpr char kImage[] = "Image";
// With the longest suffix, ".tqstartapp", it must still be a valid file name.
constexpr size_t kMaxName = 244;
constexpr size_t kMaxBytes = 1 << 20;

[[noreturn]] void refuse(const std::string& what) { throw Failure(EINVAL, what); }

[[noreturn]] void refuse_line(size_t number, const char* what) {
  refuse("line " + std::to_string(number) + " " + what);
}

bool is_letter_or_digit(char character) {
  return kDigits.find(character) != std::string_view::npos ||
         kLetters.find(character) != std::string_view::npos;
}

// Letters, digits and the given characters, a letter or digit first.
bool is_word_of(std::string_view text, std::string_view further) {
  return !text.empty() && is_letter_or_digit(text.front()) &&
         std::all_of(text.begin(), text.end(), [further](char each) {
           return is_letter_or_digit(each) || further.find(each) != std::string_view::npos;
         });
}

bool is_control_character(char character) {
  return (static_cast<unsigned char>(character) < ' ' && character != '\t') || character == '\x7f';
}

Field field_of(std::string_view line, size_t number) {
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos || !is_word_of(line.substr(0, colon), "-")) {
    refuse_line(number, "is not 'KEY: VALUE'");
  }
  std::string_view value = line.substr(colon + 1);
  if (!value.empty() && value.front() != ' ') refuse_line(number, "needs a space after the colon");
  value.remove_prefix(std::min(value.size(), value.find_first_not_of(' ')));
  return {std::string(line.substr(0, colon)), std::string(value)};
}

std::string required(const std::vector<Field>& fields, const char* key) {
  std::string value = value_of(fields, key);
  if (value.empty()) refuse(std::string(key) + " is missing");
  return value;
}

void check_once(const std::vector<Field>& fields) {
  for (auto field = fields.begin(); field != fields.end(); ++field) {
    const bool is_again = std::any_of(
        fields.begin(), field, [&](const Field& before) { return before.key == field->key; });
    if (is_again && field->key != kTarget) refuse("duplicate key " + field->key);
  }
}

void check_known(const std::vector<Field>& tqcontrol) {
  for (const Field& field : tqcontrol) {
    if (field.key != kCategory && field.key != kSubcategory && field.key != kTarget) {
      refuse("unknown key '" + field.key + "'");
    }
  }
}

void check_category(const std::string& category, const std::string& subcategory) {
  for (const char* known : {kApplication, kImage}) {
    if (category == known) {
      if (!subcategory.starts_with(category + "_") ||
          tq_tbx_conv_package_subtype(subcategory.c_str()) == TQ_TBX_SUBTYPE_NONE) {
        refuse(std::string(kSubcategory) + " '" + subcategory + "' is not an " + known +
               " subcategory (use " + known + (known == kImage ? "_Other" : "_Native") + ", ...)");
      }
    } else if (strcasecmp(category.c_str(), known) == 0) {
      refuse(std::string(kCategory) + " '" + category + "' must be spelled '" + known + "'");
    }
  }
  // The library reads one word, which a colon ends.
  if (!is_word_of(category, "-_.") || !is_word_of(subcategory, "-_.")) {
    refuse(std::string(kCategory) + " and " + kSubcategory + " must be one word each");
  }
}

void check_target(const std::string& target) {
  const auto is_target = [&](const tarvio::FlashArea& area) { return area.name == target; };
  if (tarvio::find_flash_area(is_target) == nullptr) {
    refuse(std::string(kTarget) + ": unknown flash area '" + target + "'");
  }
}

}  // namespace

std::optional<std::string> read_control_text(const std::string& path) {
  const tarvio::File file(fopen(path.c_str(), "re"));
  if (file == nullptr && errno == ENOENT) return std::nullopt;
  if (file == nullptr) throw Failure::of_system("cannot read");
  std::string content;
  std::array<char, 4096> piece;
  while (const size_t count = fread(piece.data(), 1, piece.size(), file.get())) {
    content.append(piece.data(), count);
    if (content.size() > kMaxBytes) {
      throw Failure(EFBIG, "larger than 1 MiB, so not a control file");
    }
  }
  if (ferror(file.get()) != 0) throw Failure::of_system("cannot read");
  return content;
}

std::string value_in(std::string_view text, std::string_view key) {
  while (!text.empty()) {
    std::string_view line = tarvio::take_line(text);
    if (!line.starts_with(key) || !line.substr(key.size()).starts_with(':')) continue;
    return std::string(trimmed(line.substr(key.size() + 1)));
  }
  return {};
}

std::vector<Field> parse_control_file(std::string_view text) {
  std::vector<Field> fields;
  for (size_t number = 1; !text.empty(); ++number) {
    if (text.find('\n') == std::string_view::npos) refuse_line(number, "has no line end");
    const std::string_view line = tarvio::take_line(text);
    if (line.empty()) refuse_line(number, "is empty");
    if (std::any_of(line.begin(), line.end(), is_control_character)) {
      refuse_line(number, "contains a control character");
    }
    const bool is_further = line.front() == ' ' || line.front() == '\t';
    if (is_further && fields.empty())
      refuse_line(number, "is a continuation line without a key before it");
    if (!is_further) fields.push_back(field_of(line, number));
  }
  return fields;
}

std::string value_of(const std::vector<Field>& fields, std::string_view key) {
  const auto field = std::find_if(fields.begin(), fields.end(),
                                  [key](const Field& each) { return each.key == key; });
  return field == fields.end() ? "" : field->value;
}

bool is_package_name(std::string_view text) {
  return text.size() <= kMaxName && is_word_of(text, "+-._");
}

void check_control(const std::vector<Field>& control, bool is_image) {
  check_once(control);
  const std::string name = required(control, "Package");
  if (!is_package_name(name)) {
    refuse("Package '" + name + kNameRule + "+ - . _ (at most 244)");
  }
  const std::string version = required(control, "Version");
  if (!is_word_of(version, "+-._~")) {
    refuse("Version '" + version + kNameRule + "+ - . _ ~");
  }
  (void)required(control, "Maintainer");
  // Only opkg insists on one, and images are not installed by opkg.
  if (!is_image) (void)required(control, "Architecture");
}

void check_tqcontrol(const std::vector<Field>& tqcontrol) {
  check_known(tqcontrol);
  check_once(tqcontrol);
  const std::string category = required(tqcontrol, kCategory);
  check_category(category, required(tqcontrol, kSubcategory));
  for (const Field& field : tqcontrol) {
    if (field.key != kTarget) continue;
    if (!is_image(tqcontrol)) refuse(std::string(kTarget) + " is only for images");
    check_target(field.value);
  }
}

bool is_image(const std::vector<Field>& tqcontrol) {
  return value_of(tqcontrol, kCategory) == kImage;
}

}  // namespace client
