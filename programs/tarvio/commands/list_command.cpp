// tarvio list: the installed packages.
#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "commands/arguments.h"
#include "commands/commands.h"
#include "packages/package_listing.h"
#include "tarvio/package.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/text_table.h"
#include "terminal/words.h"

namespace client {

namespace {

constexpr Option kCategory = {
    .name = "category",
    .value = "C",
    .offer = Offer::kCategories,
    .help = "only packages of this category: image, application or other"};
constexpr Option kSubcategory = {
    .name = "subcategory",
    .value = "S",
    .offer = Offer::kSubcategories,
    .help = "only packages of this subcategory: native, java, browser, jsp or other"};
constexpr Option kName = {
    .name = "name", .value = "N", .help = "only the package with exactly this name"};
constexpr std::array kOptions = {kCategory, kSubcategory, kName};

struct Filter {
  uint32_t category = TQ_CATEGORY_ANY;
  uint32_t subcategory = TQ_SUBCATEGORY_ANY;
  const char* name = nullptr;

  [[nodiscard]] bool is_set() const {
    return category != TQ_CATEGORY_ANY || subcategory != TQ_SUBCATEGORY_ANY || name != nullptr;
  }
};

uint32_t known(std::optional<uint32_t> code, const Option& option, const std::string& word,
               std::span<const Word> words) {
  if (code) return *code;
  throw UsageError(std::string("unknown ") + option.name + " '" + word + "'; use one of " +
                   choices_of(words));
}

Filter filter_in(const Arguments& arguments) {
  Filter filter;
  if (const std::string* word = arguments.value_of(kCategory)) {
    filter.category = known(category_code(*word), kCategory, *word, category_words());
  }
  if (const std::string* word = arguments.value_of(kSubcategory)) {
    filter.subcategory = known(subcategory_code(*word), kSubcategory, *word, subcategory_words());
  }
  if (const std::string* name = arguments.value_of(kName)) filter.name = name->c_str();
  return filter;
}

Json json_of(const Package& package) {
  return {{"name", package.name},
          {"version", package.version},
          {"category", category_word(package.category)},
          {"category_code", package.category},
          {"subcategory", subcategory_word(package.subcategory)},
          {"subcategory_code", package.subcategory},
          {"maintainer", package.maintainer},
          {"start_file", or_null(package.start_file)},
          {"stop_file", or_null(package.stop_file)}};
}

std::string table_of(const std::vector<Package>& packages) {
  std::vector<Row> rows = {header_of({"NAME", "VERSION", "CATEGORY", "SUBCATEGORY", "MAINTAINER"})};
  for (const Package& package : packages) {
    rows.push_back({{package.name},
                    {package.version},
                    {category_word(package.category)},
                    {subcategory_word(package.subcategory)},
                    {package.maintainer}});
  }
  return render_table(rows, wants_colour());
}

Result run(const Arguments& arguments) {
  const Filter filter = filter_in(arguments);
  Listing listing = list_packages(filter.category, filter.subcategory, filter.name);
  std::vector<Package>& packages = listing.packages;
  // People look a name up from A to Z.
  std::sort(packages.begin(), packages.end(),
            [](const Package& a, const Package& b) { return a.name < b.name; });

  Result result;
  if (!packages.empty()) result.text = table_of(packages);
  Json json = Json::array();
  for (const Package& package : packages) json.push_back(json_of(package));
  if (!packages.empty() || listing.code == 0) result.json = text_of(json);
  if (listing.code != 0) {
    result.status = kFailed;
    result.complaint =
        "cannot list the packages: " + listing.reason + " (" + std::to_string(listing.code) + ")";
  } else if (packages.empty()) {
    if (filter.name != nullptr) result.status = kNoMatch;
    if (!arguments.has(kJson))
      result.complaint = filter.is_set() ? "no such packages" : "no packages";
  }
  return result;
}

}  // namespace

const Command kListCommand = {
    .word = "list",
    .operands = kNoOperands,
    .options = kOptions,
    .timeout = kNoTimeout,
    .summary = "list the installed packages",
    .description = "Lists the installed packages. Needs no manager.",
    .statuses = "0 done, 1 failed, 12 no such package with --name",
    .run = run,
};

}  // namespace client
