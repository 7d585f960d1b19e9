#include "commands/arguments.h"

#include <getopt.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace client {

namespace {

constexpr int kBehindLetters = 256;

struct OptionRow {
  Option option;
  const char* word;
  int code;           // a letter that stands for it too, or a number of its own
  const char* value;  // what its value is called; null for a flag
};

constexpr int number_of(Option option) { return kBehindLetters + static_cast<int>(option); }

constexpr std::array<OptionRow, 18> kOptions = {{
    {Option::kHelp, "help", 'h', nullptr},
    {Option::kVersion, "version", 'V', nullptr},
    {Option::kJson, "json", number_of(Option::kJson), nullptr},
    {Option::kTimeout, "timeout", number_of(Option::kTimeout), "SECONDS"},
    {Option::kApps, "apps", number_of(Option::kApps), nullptr},
    {Option::kCategory, "category", number_of(Option::kCategory), "C"},
    {Option::kSubcategory, "subcategory", number_of(Option::kSubcategory), "S"},
    {Option::kName, "name", number_of(Option::kName), "N"},
    {Option::kForce, "force", number_of(Option::kForce), nullptr},
    {Option::kOutput, "output", 'o', "FILE"},
    {Option::kWatch, "watch", number_of(Option::kWatch), nullptr},
    {Option::kTo, "to", number_of(Option::kTo), "FILE"},
    {Option::kWorkDirectory, "workdir", number_of(Option::kWorkDirectory), "DIR"},
    {Option::kOverwrite, "overwrite", number_of(Option::kOverwrite), nullptr},
    {Option::kQuiet, "quiet", number_of(Option::kQuiet), nullptr},
    {Option::kYes, "yes", number_of(Option::kYes), nullptr},
    {Option::kVerify, "verify", number_of(Option::kVerify), nullptr},
    {Option::kNoVerify, "no-verify", number_of(Option::kNoVerify), nullptr},
}};

// What getopt_long is to return: every operand in its place, a missing value as ':'.
constexpr char kLetters[] = "-:hVo:";
constexpr int kOperand = 1;

constexpr auto long_options() {
  std::array<option, kOptions.size() + 1> all = {};  // the last one stays empty
  for (size_t at = 0; at < kOptions.size(); ++at) {
    const OptionRow& row = kOptions[at];
    const int takes_value = row.value == nullptr ? no_argument : required_argument;
    all[at] = {row.word, takes_value, nullptr, row.code};
  }
  return all;
}
constexpr auto kLongOptions = long_options();

const OptionRow& row_of(int code) {
  return *std::find_if(kOptions.begin(), kOptions.end(),
                       [code](const OptionRow& row) { return row.code == code; });
}

// Reads the line with getopt_long, of which there is one in a process.
class Reader {
 public:
  Reader(int argc, const char* const* argv) : argc_(argc), argv_(argv) {
    optind = 0;  // starts anew, though a line may have been read before
    opterr = 0;
  }

  Arguments read() {
    while (read_next()) {
    }
    for (int at = optind; at < argc_; ++at) add_operand(argv_[at]);
    check_options();
    return std::move(arguments_);
  }

 private:
  bool read_next() {
    const int at = std::max(optind, 1);
    argument_ = at < argc_ ? argv_[at] : "";
    // Operands are taken in their places, so that none is moved.
    const int code =
        getopt_long(argc_, const_cast<char* const*>(argv_), kLetters, kLongOptions.data(), nullptr);
    switch (code) {
      case -1:
        return false;
      case kOperand:
        add_operand(optarg);
        break;
      case '?':
        refuse_option();
        break;
      case ':':
        add_without_value(row_of(optopt));
        break;
      default:
        add_option(row_of(code));
    }
    return true;
  }

  void add_operand(const char* operand) {
    if (arguments_.command != nullptr) {
      arguments_.operands.emplace_back(operand);
      return;
    }
    arguments_.command = find_command(operand);
    if (arguments_.command == nullptr) refuse("no command '" + std::string(operand) + "'");
  }

  [[nodiscard]] bool is_long() const { return argument_.starts_with("--"); }

  // A long option without its value; a letter out of the several that may stand together.
  [[nodiscard]] std::string spelling_of(int code) const {
    if (is_long()) return std::string(argument_.substr(0, argument_.find('=')));
    return {'-', static_cast<char>(code)};
  }

  // Scripts that rely on an abbreviation break when another option of that beginning comes.
  [[nodiscard]] bool is_abbreviated(const OptionRow& row) const {
    return is_long() && spelling_of(row.code).substr(2) != row.word;
  }

  void add_option(const OptionRow& row) {
    if (is_abbreviated(row)) return refuse_unknown(row.code);
    const char* const value = row.value == nullptr ? "" : optarg;
    arguments_.options.push_back({row.option, spelling_of(row.code), value});
  }

  void add_without_value(const OptionRow& row) {
    if (is_abbreviated(row)) return refuse_unknown(row.code);
    refuse("option '" + spelling_of(row.code) + "' needs a value, " + row.value);
  }

  void refuse_option() {
    // A long one with a code is known: it should not have had a value.
    const bool is_flag = is_long() && optopt != 0 && !is_abbreviated(row_of(optopt));
    if (is_flag) return refuse("option '" + spelling_of(optopt) + "' takes no value");
    refuse_unknown(optopt);
  }

  void refuse_unknown(int code) {
    refuse("no option '" + (is_long() ? std::string(argument_) : spelling_of(code)) + "'");
  }

  void refuse(std::string what) {
    if (!arguments_.wrong) arguments_.wrong = std::move(what);
  }

  void check_options() {
    constexpr OptionSet kEverywhere(Option::kHelp, Option::kVersion, Option::kJson,
                                    Option::kTimeout);
    if (arguments_.command == nullptr) return;
    for (const GivenOption& given : arguments_.options) {
      if (!kEverywhere.has(given.option) && !arguments_.command->options.has(given.option)) {
        refuse("no option '" + given.spelling + "'");
      }
    }
  }

  int argc_;
  const char* const* argv_;
  std::string_view argument_;  // what getopt_long looks at
  Arguments arguments_;
};

}  // namespace

const GivenOption* Arguments::find(Option option) const {
  const auto given =
      std::find_if(options.rbegin(), options.rend(),
                   [option](const GivenOption& each) { return each.option == option; });
  return given == options.rend() ? nullptr : &*given;
}

Arguments read_arguments(int argc, const char* const* argv) { return Reader(argc, argv).read(); }

}  // namespace client
