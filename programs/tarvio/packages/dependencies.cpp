#include "packages/dependencies.h"

#include <algorithm>
#include <vector>

#include "packages/control_fields.h"
#include "packages/opkg_information.h"
#include "packages/version_order.h"
#include "process/text_pieces.h"

namespace client {

namespace {

// The parts of a list, without blanks around them.
std::vector<std::string_view> parts_of(std::string_view list, char separator) {
  std::vector<std::string_view> parts;
  while (!list.empty()) {
    const size_t end = std::min(list.find(separator), list.size());
    if (const auto part = trimmed(list.substr(0, end)); !part.empty()) parts.push_back(part);
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return parts;
}

// "NAME" or "NAME (RELATION VERSION)".
struct Reference {
  std::string_view name;
  std::string_view relation;
  std::string_view version;
};

Reference reference_in(std::string_view text) {
  const size_t bracket = text.find('(');
  Reference reference = {.name = trimmed(text.substr(0, bracket)), .relation = {}, .version = {}};
  if (bracket == std::string_view::npos) return reference;
  text.remove_prefix(bracket + 1);
  text = trimmed(text.substr(0, text.find(')')));
  const size_t end = std::min(text.find_first_not_of("<=>"), text.size());
  reference.relation = text.substr(0, end);
  reference.version = trimmed(text.substr(end));
  return reference;
}

// To opkg "<" and ">" include the version itself.
bool fits(std::string_view version, const Reference& wanted) {
  const bool is_earlier = is_older(version, wanted.version);
  const bool is_later = is_older(wanted.version, version);
  const std::string_view relation = wanted.relation;
  if (relation == "<<") return is_earlier;
  if (relation == ">>") return is_later;
  if (relation == "<" || relation == "<=") return !is_later;
  if (relation == ">" || relation == ">=") return !is_earlier;
  if (relation.empty()) return wanted.version.empty();
  return relation == "=" && !is_earlier && !is_later;
}

struct Offer {
  std::string name;
  std::string version;
};

// The installed packages, and what they provide, which has the version of the package unless it has
// its own.
std::vector<Offer> installed_offers() {
  constexpr std::string_view kEnding = ".control";
  const std::string directory = information_directory() + "/";
  std::vector<Offer> offers;
  for (const std::string& file : control_files_in(directory)) {
    const std::string text = read_information(directory + file).value_or("");
    const std::string version = value_in(text, "Version");
    offers.push_back({file.substr(0, file.size() - kEnding.size()), version});
    const std::string provided = value_in(text, "Provides");
    for (const std::string_view part : parts_of(provided, ',')) {
      const Reference each = reference_in(part);
      offers.push_back(
          {std::string(each.name), each.version.empty() ? version : std::string(each.version)});
    }
  }
  return offers;
}

bool is_satisfied(std::string_view dependency, const std::vector<Offer>& offers) {
  const std::vector<std::string_view> alternatives = parts_of(dependency, '|');
  return std::any_of(alternatives.begin(), alternatives.end(), [&](std::string_view each) {
    const Reference wanted = reference_in(each);
    return std::any_of(offers.begin(), offers.end(), [&](const Offer& offer) {
      return offer.name == wanted.name && fits(offer.version, wanted);
    });
  });
}

}  // namespace

std::string missing_dependency(std::string_view control) {
  const std::vector<Offer> offers = installed_offers();
  for (const char* key : {"Pre-Depends", "Depends"}) {
    const std::string dependencies = value_in(control, key);
    for (const std::string_view dependency : parts_of(dependencies, ',')) {
      if (!is_satisfied(dependency, offers)) return std::string(dependency);
    }
  }
  return {};
}

}  // namespace client
