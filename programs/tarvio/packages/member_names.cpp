#include "packages/member_names.h"

#include <algorithm>
#include <cerrno>

#include "packages/control_fields.h"
#include "process/failure.h"
#include "process/text_pieces.h"

namespace client {

namespace {

// After mode, owner, size, date and time.
std::string_view name_in(std::string_view line) {
  for (int words = 0; words < 5; ++words) (void)take_word(line);
  line.remove_prefix(std::min(line.size(), line.find_first_not_of(' ')));
  return line.substr(0, line.find('\n'));
}

bool leads_up(std::string_view path) {
  while (!path.empty()) {
    const std::string_view part = path.substr(0, path.find('/'));
    if (part == "..") return true;
    path.remove_prefix(std::min(path.size(), part.size() + 1));
  }
  return false;
}

}  // namespace

// Editors leave ".x" and "x~" beside the others, which opkg keeps without harm.
bool is_control_member(std::string_view line) {
  std::string_view name = name_in(line);
  if (line.starts_with('d')) return name == "./";
  if (name.starts_with("./")) name.remove_prefix(2);
  name.remove_prefix(std::min(name.size(), name.find_first_not_of('.')));
  if (name.ends_with('~')) name.remove_suffix(1);
  return line.starts_with('-') && is_package_name(name);
}

// A name may hold what stands before a link's target: the last one counts.
bool is_data_member(std::string_view line) {
  constexpr std::string_view kLinkTo = " link to ";
  const std::string_view name = name_in(line);
  if (line.starts_with('l')) return !leads_up(name.substr(0, name.rfind(" -> ")));
  const size_t arrow = line.starts_with('h') ? name.rfind(kLinkTo) : std::string_view::npos;
  if (arrow == std::string_view::npos) return !leads_up(name);
  return !leads_up(name.substr(0, arrow)) && !leads_up(name.substr(arrow + kLinkTo.size()));
}

void MemberNames::add(std::string_view piece) {
  while (lines_.feed(piece) == tarvio::LineCutter::Result::kLine) {
    if (wrong_.empty() && !rule_(lines_.line())) wrong_ = name_in(lines_.line());
  }
}

void MemberNames::check(const char* archive) const {
  if (wrong_.empty()) return;
  throw Failure(
      EINVAL, std::string("its ") + archive + " has '" + wrong_ + "', which does not belong there");
}

}  // namespace client
