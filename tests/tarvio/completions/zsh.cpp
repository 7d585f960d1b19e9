#include "completions.h"

namespace completions {

namespace {

using client::Command;
using client::Offer;
using client::Option;

constexpr char kText[] = R"sh(#compdef @program@
# zsh completion for @program@. Written by scripts/completions from the commands themselves.

# The first column of a table of the program, but for what stands on the line already.
# usage: @function@_names COMMAND [ARGUMENT]...
@function@_names() {
  local -a names
  names=(${${(f)"$($program "$@" 2>/dev/null </dev/null)"}[2,-1]%% *})
  compadd -F line -a names
}

@offers@
@function@_commands() {
  local -a commands
  commands=(
@commands@  )
  _describe command commands
}

@function@() {
  local context state state_descr line program=${(Q)words[1]}
  typeset -A opt_args
  _arguments -C -A '-*' \
@options@    '1: :@function@_commands' \
    '*:: :->arguments' && return
  [[ $state == arguments ]] || return
  case $words[1] in
@arguments@  esac
}

@function@ "$@"
)sh";

std::string in_quotes(const std::string& text) { return '\'' + with(text, "'", R"('\'')") + '\''; }

std::string explained(const Option& option) {
  return '[' + with(with(main_clause(option.help), "[", R"(\[)"), "]", R"(\])") + ']';
}

std::string function_for(Offer offer) {
  return offer == Offer::kNothing ? " " : "@function@_" + name_of(offer);
}

// One argument of _arguments.
std::string spec_of(const Option& option) {
  const std::string name = std::string("--") + option.name;
  const bool is_optional = option.fallback != nullptr;
  const std::string equals = option.value == nullptr ? "" : is_optional ? "=-" : "=";
  std::string rest = explained(option);
  if (option.value != nullptr) {
    rest += std::string(is_optional ? "::" : ":") + option.value + ":" + function_for(option.offer);
  }
  if (option.letter == '\0') return in_quotes(name + equals + rest);
  const std::string letter = std::string("-") + option.letter;
  const std::string others = option.value == nullptr ? "(- *)" : "(" + letter + " " + name + ")";
  return in_quotes(others) + '{' + letter + (option.value == nullptr ? "" : "+") + ',' + name +
         equals + '}' + in_quotes(rest);
}

std::string option_lines(const Command* command, const char* indent) {
  std::string lines;
  for (const Option& option : shown_options(command)) lines += indent + spec_of(option) + " \\\n";
  return lines;
}

std::string argument_cases() {
  std::string cases;
  for (const Command* command : client::all_commands()) {
    const auto& operands = command->operands;
    cases += std::string("    ") + command->word + ")\n      _arguments \\\n" +
             option_lines(command, "        ");
    if (operands.max > 0) {
      const char* const count = operands.max > 1 ? "*" : "1";
      cases +=
          "        " +
          in_quotes(std::string(count) + ":" + operands.name + ":" + function_for(operands.offer)) +
          "\n      ;;\n";
    } else {
      cases.replace(cases.size() - 3, 3, "\n      ;;\n");  // the last line goes on to nothing
    }
  }
  return cases;
}

std::string command_lines() {
  std::string lines;
  for (const Command* command : client::all_commands()) {
    lines += "    " + in_quotes(std::string(command->word) + ':' + command->summary) + '\n';
  }
  return lines;
}

std::string offer_functions() {
  std::string functions;
  const auto add = [&](Offer offer, const std::string& body) {
    if (is_offered(offer)) functions += function_for(offer) + "() { " + body + " }\n";
  };
  for (const NameOffer& each : kNameOffers) {
    add(each.offer, std::string("@function@_names ") + each.arguments);
  }
  add(Offer::kPackageFiles, "_files -g '*.tbx'");
  add(Offer::kFiles, "_files");
  add(Offer::kDirectories, "_files -/");
  for (const Offer offer : kWordOffers) {
    if (offer == Offer::kCommands) continue;  // they are described
    add(offer, "compadd " + joined(words_of(offer), " "));
  }
  return functions;
}

}  // namespace

std::string zsh() {
  std::string text = with(kText, "@offers@", offer_functions());
  text = with(text, "@commands@", command_lines());
  text = with(text, "@options@", option_lines(nullptr, "    "));
  return of_program(with(text, "@arguments@", argument_cases()));
}

}  // namespace completions
