#include "completions.h"

#include <algorithm>
#include <utility>

#include "manager/wait_states.h"
#include "program.h"
#include "terminal/words.h"

namespace completions {

using client::Command;
using client::Offer;
using client::Option;

std::vector<Option> shown_options(const Command* command) {
  std::vector<Option> options = client::options_of(command);
  std::erase_if(options, [](const Option& option) { return option.help == nullptr; });
  return options;
}

std::vector<Option> options_with_values() {
  std::vector<Option> all;
  for (const Command* command : client::all_commands()) {
    for (const Option& option : client::options_of(command)) {
      const auto is_same = [&](const Option& each) {
        return std::string_view(each.name) == option.name;
      };
      const bool takes_word = option.value != nullptr && option.fallback == nullptr;
      if (takes_word && std::none_of(all.begin(), all.end(), is_same)) {
        all.push_back(option);
      }
    }
  }
  return all;
}

std::string name_of(Offer offer) {
  switch (offer) {
    case Offer::kApplications:
      return "applications";
    case Offer::kPackages:
      return "packages";
    case Offer::kPackageFiles:
      return "package_files";
    case Offer::kFiles:
      return "files";
    case Offer::kDirectories:
      return "directories";
    case Offer::kAreas:
      return "areas";
    case Offer::kCategories:
      return "categories";
    case Offer::kSubcategories:
      return "subcategories";
    case Offer::kWaitStates:
      return "wait_states";
    case Offer::kCommands:
      return "commands";
    case Offer::kBoards:
      return "boards";
    case Offer::kRollouts:
      return "rollouts";
    case Offer::kNothing:
      break;
  }
  return "nothing";
}

bool is_offered(Offer offer) {
  const auto has = [=](const Option& option) { return option.offer == offer; };
  const auto commands = client::all_commands();
  return std::any_of(commands.begin(), commands.end(), [&](const Command* command) {
    return command->operands.offer == offer ||
           std::any_of(command->options.begin(), command->options.end(), has);
  });
}

std::vector<std::string> words_of(Offer offer) {
  std::vector<std::string> words;
  if (offer == Offer::kCategories) {
    for (const client::Word& word : client::category_words()) words.emplace_back(word.text);
  } else if (offer == Offer::kSubcategories) {
    for (const client::Word& word : client::subcategory_words()) words.emplace_back(word.text);
  } else if (offer == Offer::kWaitStates) {
    for (const char* const state : client::wait_states()) words.emplace_back(state);
  } else if (offer == Offer::kCommands) {
    for (const Command* command : client::all_commands()) words.emplace_back(command->word);
  }
  return words;
}

std::string spellings_of(const Option& option, std::string_view separator) {
  const std::string name = std::string("--") + option.name;
  if (option.letter == '\0') return name;
  return std::string("-") + option.letter + std::string(separator) + name;
}

std::string main_clause(const char* help) {
  const std::string_view text = help;
  return std::string(text.substr(0, text.find(';')));
}

std::string joined(const std::vector<std::string>& words, std::string_view separator) {
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += separator;
    text += word;
  }
  return text;
}

std::string of_program(std::string text) {
  const std::string name = client::kProgram.name;
  text = with(std::move(text), "@function@", with("_" + name, "-", "_"));
  return with(std::move(text), "@program@", name);
}

std::string with(std::string text, std::string_view piece, std::string_view replacement) {
  for (size_t at = text.find(piece); at != std::string::npos;
       at = text.find(piece, at + replacement.size())) {
    text.replace(at, piece.size(), replacement);
  }
  return text;
}

}  // namespace completions
