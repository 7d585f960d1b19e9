#include "completions.h"

namespace completions {

namespace {

using client::Command;
using client::Offer;
using client::Option;

constexpr char kHead[] =
    R"sh(# fish completion for @program@. Written by scripts/completions from the commands themselves.

# The command and the operands before the cursor, a line each.
function _@function@_given
    set -l is_value 0
    for word in (commandline -opc)[2..-1]
        if test $is_value = 1
            set is_value 0
            continue
        end
        switch $word
            case @values@
                set is_value 1
            case '-*'
            case '*'
                echo -- $word
        end
    end
end

function _@function@_needs_command
    test (count (_@function@_given)) = 0
end

function _@function@_is
    set -l given (_@function@_given)
    test "$given[1]" = $argv[1]
end

# Whether the command takes another operand: it takes as many as the second argument says.
function _@function@_takes
    set -l given (_@function@_given)
    test "$given[1]" = $argv[1] -a (count $given) -le $argv[2]
end

# The first column of a table of the program, but for what stands on the line already.
function _@function@_names
    set -l given (_@function@_given)
    set -l words (commandline -opc)
    for name in ($words[1] $argv 2>/dev/null </dev/null | tail -n +2 | string replace -r ' .*' '')
        contains -- $name $given[2..-1]; or echo -- $name
    end
end
@offers@
complete -c @program@ -f
)sh";

std::string in_quotes(const std::string& text) {
  return '\'' + with(with(text, "\\", "\\\\"), "'", "\\'") + '\'';
}

std::string option_line(const std::string& condition, const Option& option) {
  std::string line = "complete -c @program@ -n " + in_quotes(condition);
  if (option.letter != '\0') line += std::string(" -s ") + option.letter;
  line += std::string(" -l ") + option.name;
  if (option.value != nullptr && option.fallback == nullptr) line += " -x";
  if (option.offer != Offer::kNothing)
    line += " -a " + in_quotes("(_@function@_" + name_of(option.offer) + ")");
  return line + " -d " + in_quotes(main_clause(option.help)) + '\n';
}

std::string lines_of(const Command& command) {
  std::string lines = "\ncomplete -c @program@ -n _@function@_needs_command -a " +
                      std::string(command.word) + " -d " + in_quotes(command.summary) + '\n';
  for (const Option& option : shown_options(&command)) {
    lines += option_line(std::string("_@function@_is ") + command.word, option);
  }
  if (command.operands.offer != Offer::kNothing) {
    const char* const max = command.operands.max > 1 ? "1000" : "1";
    lines += "complete -c @program@ -n " +
             in_quotes(std::string("_@function@_takes ") + command.word + ' ' + max) + " -a " +
             in_quotes("(_@function@_" + name_of(command.operands.offer) + ")") + '\n';
  }
  return lines;
}

// Lists what matches the patterns, which begin with what stands on the line already.
std::string listing(const char* patterns) {
  return "set -l begin (string replace -r -- '^--[a-z-]+=' '' (commandline -ct))\n"
         "    for file in " +
         std::string(patterns) + "\n        echo -- $file\n    end";
}

std::string offer_functions() {
  std::string functions;
  const auto add = [&](Offer offer, const std::string& body) {
    if (!is_offered(offer)) return;
    functions += "\nfunction _@function@_" + name_of(offer) + "\n    " + body + "\nend\n";
  };
  for (const NameOffer& each : kNameOffers) {
    add(each.offer, std::string("_@function@_names ") + each.arguments);
  }
  add(Offer::kPackageFiles, listing("$begin*.tbx $begin*/"));
  add(Offer::kFiles, listing("$begin*"));
  add(Offer::kDirectories, listing("$begin*/"));
  for (const Offer offer : kWordOffers) {
    add(offer, "printf '%s\\n' " + joined(words_of(offer), " "));
  }
  return functions;
}

std::string value_words() {
  std::vector<std::string> words;
  for (const Option& option : options_with_values()) words.push_back(spellings_of(option, " "));
  return joined(words, " ");
}

}  // namespace

std::string fish() {
  std::string text = with(with(kHead, "@values@", value_words()), "@offers@", offer_functions());
  for (const Option& option : shown_options(nullptr)) {
    text += option_line("_@function@_needs_command", option);
  }
  for (const Command* command : client::all_commands()) text += lines_of(*command);
  return of_program(std::move(text));
}

}  // namespace completions
