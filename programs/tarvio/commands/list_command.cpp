#include "commands/list_command.h"

#include <algorithm>
#include <string>
#include <vector>

#include "packages/packages.h"
#include "process/exit_status.h"
#include "terminal/json.h"
#include "terminal/output.h"
#include "terminal/text_table.h"
#include "terminal/words.h"

namespace client {

namespace {

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

bool has_filter(const Options& options) {
  return options.name || options.category != TQ_CATEGORY_ANY ||
         options.subcategory != TQ_SUBCATEGORY_ANY;
}

bool show(const std::vector<Package>& packages, const Options& options) {
  if (options.json) return print(packages_json(packages));
  if (!packages.empty()) return print(table_of(packages));
  complain(has_filter(options) ? "no such packages" : "no packages");
  return true;
}

// Memory is the one reason for which the library has no errno value here.
std::string reason_of(int32_t code) {
  return code < 0 ? "out of memory" : result_words(code) + " (" + std::to_string(code) + ")";
}

}  // namespace

int run_list(const Options& options) {
  Listing listing = list_packages(options.category, options.subcategory,
                                  options.name ? options.name->c_str() : nullptr);
  // People look a name up from A to Z.
  std::sort(listing.packages.begin(), listing.packages.end(),
            [](const Package& a, const Package& b) { return a.name < b.name; });
  const bool has_result = listing.code == 0 || !listing.packages.empty();
  const bool is_written = !has_result || show(listing.packages, options);
  if (listing.code != 0) complain("listing the packages failed: " + reason_of(listing.code));
  return is_written && listing.code == 0 ? kDone : kFailed;
}

}  // namespace client
