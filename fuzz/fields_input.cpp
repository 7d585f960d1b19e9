// Control files, as the client checks them: the text of control, a zero byte, and that of
// tqcontrol.
#include <algorithm>
#include <vector>

#include "fuzzer.h"
#include "memory_file.h"
#include "models.h"
#include "packages/control_fields.h"
#include "packages/package_file.h"
#include "process/failure.h"
#include "tarvio/conf.h"

namespace tarvio_fuzz {
namespace {

using Fields = std::vector<client::Field>;

constexpr std::string_view kBlanks = " \t\r\n";

std::string trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.size(), text.find_first_not_of(kBlanks)));
  return std::string(text.substr(0, text.find_last_not_of(kBlanks) + 1));
}

// The library reads further lines of a value, and long lines, otherwise (oddity 25).
bool is_plain(const std::string& text) {
  constexpr size_t kPieceBytes = 255;
  const Texts lines = pieces_of(text, text.size());
  return std::none_of(lines.begin(), lines.end(), [](const std::string& line) {
    return line.size() > kPieceBytes || kBlanks.find(line[0]) != std::string_view::npos;
  });
}

// Whether what was accepted reads the same by other ways.
std::string compare(const std::string& text, const Fields& fields,
                    const std::vector<const char*>& words) {
  for (const client::Field& field : fields) {
    if (field.key.empty()) return "a field without a key";
    if (client::value_in(text, field.key) != trimmed(client::value_of(fields, field.key)))
      return "another value of " + field.key;
  }
  if (!is_plain(text)) return "";
  const MemoryFile file(text);
  tq_conf* const conf = tq_conf_open(file.path().c_str());
  std::string wrong;
  for (const char* key : words)
    if (tq_conf_read(conf, key) != trimmed(client::value_of(fields, key)))
      wrong = std::string("the library reads another ") + key;
  tq_conf_close(conf);
  return wrong;
}

std::string check_control_text(const std::string& text) {
  const Fields fields = client::parse_control_file(text);
  std::string wrong = compare(text, fields, {});
  if (!wrong.empty()) return wrong;
  client::check_control(fields, false);
  client::check_control(fields, true);
  if (!client::is_package_name(client::value_of(fields, "Package"))) return "not a name";
  return compare(text, fields, {"Package"});
}

std::string check_tqcontrol_text(const std::string& text) {
  const Fields fields = client::parse_control_file(text);
  client::check_tqcontrol(fields);
  return compare(text, fields, {"TqPackageCategory", "TqPackageSubCategory"});
}

std::string check_target(const std::string& text) {
  const std::string target = client::target_in(text);
  return target == trimmed(target) ? "" : "a target with blanks";
}

std::string check_fields(const std::string& input) {
  const std::string control = input.substr(0, input.find('\0'));
  const std::string tqcontrol = input.substr(std::min(input.size(), control.size() + 1));
  const auto checked = [](auto check, const std::string& text) -> std::string {
    try {
      return check(text);
    } catch (const client::Failure& failure) {
      return failure.what()[0] == '\0' ? "refused without a reason" : "";
    }
  };
  std::string wrong = checked(check_control_text, control);
  if (wrong.empty()) wrong = checked(check_tqcontrol_text, tqcontrol);
  if (wrong.empty()) wrong = check_target(tqcontrol);
  return wrong;
}

}  // namespace

const Fuzzer kFields = {.corpus = "fields", .check = check_fields};

}  // namespace tarvio_fuzz
