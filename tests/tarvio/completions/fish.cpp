#include "completions.h"

namespace completions {

namespace {

using client::Command;
using client::Offer;
using client::Option;

constexpr char kHead[] =
    R"sh(# fish completion for tarvio. Written by scripts/completions from the commands themselves.

# The command and the operands before the cursor, a line each.
function __tarvio_given
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

function __tarvio_needs_command
    test (count (__tarvio_given)) = 0
end

function __tarvio_is
    set -l given (__tarvio_given)
    test "$given[1]" = $argv[1]
end

# Whether the command takes another operand: it takes as many as the second argument says.
function __tarvio_takes
    set -l given (__tarvio_given)
    test "$given[1]" = $argv[1] -a (count $given) -le $argv[2]
end

# The first column of a table of the program, but for what stands on the line already.
function __tarvio_names
    set -l given (__tarvio_given)
    set -l words (commandline -opc)
    for name in ($words[1] $argv 2>/dev/null </dev/null | tail -n +2 | string replace -r ' .*' '')
        contains -- $name $given[2..-1]; or echo -- $name
    end
end

function __tarvio_applications
    __tarvio_names list --category application
end

function __tarvio_packages
    __tarvio_names list
end

function __tarvio_areas
    __tarvio_names areas
end

function __tarvio_package_files
    set -l begin (string replace -r -- '^--[a-z-]+=' '' (commandline -ct))
    for file in $begin*.tbx $begin*/
        echo -- $file
    end
end

function __tarvio_files
    set -l begin (string replace -r -- '^--[a-z-]+=' '' (commandline -ct))
    for file in $begin*
        echo -- $file
    end
end

function __tarvio_directories
    set -l begin (string replace -r -- '^--[a-z-]+=' '' (commandline -ct))
    for directory in $begin*/
        echo -- $directory
    end
end
@words@
complete -c tarvio -f
)sh";

std::string in_quotes(const std::string& text) {
  return '\'' + with(with(text, "\\", "\\\\"), "'", "\\'") + '\'';
}

std::string option_line(const std::string& condition, const Option& option) {
  std::string line = "complete -c tarvio -n " + in_quotes(condition);
  if (option.letter != '\0') line += std::string(" -s ") + option.letter;
  line += std::string(" -l ") + option.name;
  if (option.value != nullptr && option.fallback == nullptr) line += " -x";
  if (option.offer != Offer::kNothing)
    line += " -a " + in_quotes("(__tarvio_" + name_of(option.offer) + ")");
  return line + " -d " + in_quotes(main_clause(option.help)) + '\n';
}

std::string lines_of(const Command& command) {
  std::string lines = "\ncomplete -c tarvio -n __tarvio_needs_command -a " +
                      std::string(command.word) + " -d " + in_quotes(command.summary) + '\n';
  for (const Option& option : shown_options(&command)) {
    lines += option_line(std::string("__tarvio_is ") + command.word, option);
  }
  if (command.operands.max > 0) {
    const char* const max = command.operands.max > 1 ? "1000" : "1";
    lines += "complete -c tarvio -n " +
             in_quotes(std::string("__tarvio_takes ") + command.word + ' ' + max) + " -a " +
             in_quotes("(__tarvio_" + name_of(command.operands.offer) + ")") + '\n';
  }
  return lines;
}

std::string word_functions() {
  std::string functions;
  for (const Offer offer : kWordOffers) {
    functions += "\nfunction __tarvio_" + name_of(offer) + "\n    printf '%s\\n' " +
                 joined(words_of(offer), " ") + "\nend\n";
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
  std::string text = with(with(kHead, "@values@", value_words()), "@words@", word_functions());
  for (const Option& option : shown_options(nullptr)) {
    text += option_line("__tarvio_needs_command", option);
  }
  for (const Command* command : client::all_commands()) text += lines_of(*command);
  return text;
}

}  // namespace completions
