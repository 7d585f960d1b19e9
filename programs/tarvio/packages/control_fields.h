// The rules for the two control files of a package.
#ifndef TARVIO_CLIENT_PACKAGES_CONTROL_FIELDS_H
#define TARVIO_CLIENT_PACKAGES_CONTROL_FIELDS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace client {

struct Field {
  std::string key;
  std::string value;  // its first line
};

// What a file holds; none when there is no such file. Throws a Failure for one that cannot be read,
// or is too large for a control file.
std::optional<std::string> read_control_text(const std::string& path);

// The value after "KEY:" at the beginning of a line, as opkg reads it; empty when there is none.
// The library would end it at the first space or colon (oddity 24).
std::string value_in(std::string_view text, std::string_view key);

// All fields of a file, in their order. Throws a Failure that names the line which breaks a rule:
// "KEY: VALUE", and further lines of a value begin with a space.
std::vector<Field> parse_control_file(std::string_view text);

// The value of the first field with this key; empty when there is none.
std::string value_of(const std::vector<Field>& fields, std::string_view key);

// Whether opkg, the library and a shell accept the text as a package name.
bool is_package_name(std::string_view text);

// Both throw a Failure that names what is missing or wrong.
void check_control(const std::vector<Field>& control, bool is_image);
void check_tqcontrol(const std::vector<Field>& tqcontrol);

bool is_image(const std::vector<Field>& tqcontrol);

}  // namespace client

#endif
