#include "completions.h"

namespace completions {

namespace {

using client::Command;
using client::Offer;
using client::Option;

constexpr char kHead[] =
    R"sh(# bash completion for tarvio. Written by scripts/completions from the commands themselves.

# What the value of an option is; empty for a flag.
_tarvio_set_value() {
  value=
  case $1 in
@values@  esac
}

# What may follow a command: its options, and how many operands of which kind.
_tarvio_set_command() {
  kind=nothing max=0
  case $1 in
@commands@  esac
}
)sh";

// What does not depend on the commands.
constexpr char kTail[] = R"sh(
# The first column of a table of the program, but for what stands on the line already. Names are quoted for the
# shell: what a package is called must not become a command.
# usage: _tarvio_names BEGIN COMMAND [ARGUMENT]...
_tarvio_names() {
  local begin=$1 name quoted
  shift
  while read -r name _; do
    [[ $name == "$begin"* && " ${given[*]:1} " != *" $name "* ]] || continue
    printf -v quoted %q "$name"
    COMPREPLY+=("$quoted")
  done < <("$program" "$@" 2>/dev/null </dev/null | tail -n +2)
}

# Directories, and with a pattern the files that match it. The shell quotes them.
# usage: _tarvio_files BEGIN [PATTERN]
_tarvio_files() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(
    compgen -d -- "$1"
    [[ ! ${2-} ]] || compgen -f -X "!$2" -- "$1"
  )
}

# usage: _tarvio_offer KIND BEGIN
_tarvio_offer() {
  case $1 in
    applications) _tarvio_names "$2" list --category application ;;
    packages) _tarvio_names "$2" list ;;
    areas) _tarvio_names "$2" areas ;;
    package_files) _tarvio_files "$2" '*.tbx' ;;
    files) _tarvio_files "$2" '*' ;;
    directories) _tarvio_files "$2" ;;
@words@  esac
}

_tarvio_words() {
  mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

_tarvio() {
  local program=$1 current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local at given=() value options kind max
  COMPREPLY=()

  # "--option=value" comes as three words.
  if [[ $current == = ]]; then
    current=
  elif [[ $previous == = ]]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  _tarvio_set_value "$previous"
  if [[ $value ]]; then
    _tarvio_offer "$value" "$current"
    return
  fi

  for ((at = 1; at < COMP_CWORD; at++)); do
    _tarvio_set_value "${COMP_WORDS[at]}"
    if [[ $value ]]; then
      [[ ${COMP_WORDS[at + 1]} == = ]] && ((at++))
      ((at++))
    elif [[ ${COMP_WORDS[at]} == = ]]; then
      ((at++))
    elif [[ ${COMP_WORDS[at]} != -* ]]; then
      given+=("${COMP_WORDS[at]}")
    fi
  done

  _tarvio_set_command "${given[0]-}"
  if [[ $current == -* ]]; then
    _tarvio_words "$options" "$current"
  elif ((${#given[@]} == 0)); then
    _tarvio_offer commands "$current"
  elif ((${#given[@]} <= max)); then
    _tarvio_offer "$kind" "$current"
  fi
}

complete -F _tarvio tarvio
)sh";

std::string option_words(const Command* command) {
  std::vector<std::string> words;
  for (const Option& option : shown_options(command)) {
    words.push_back(std::string("--") + option.name);
  }
  return "options='" + joined(words, " ") + "'";
}

std::string value_cases() {
  std::string cases;
  for (const Option& option : options_with_values()) {
    cases += "    " + spellings_of(option, " | ") + ") value=" + name_of(option.offer) + " ;;\n";
  }
  return cases;
}

std::string command_cases() {
  std::string cases = "    '') " + option_words(nullptr) + " ;;\n";
  for (const Command* command : client::all_commands()) {
    cases += std::string("    ") + command->word + ")\n      " + option_words(command) + "\n";
    if (command->operands.max > 0) {
      const bool is_one = command->operands.max == 1;
      cases += "      kind=" + name_of(command->operands.offer) +
               " max=" + (is_one ? "1" : "1000") + "\n";
    }
    cases += "      ;;\n";
  }
  return cases + "    *) options= ;;\n";
}

std::string word_cases() {
  std::string cases;
  for (const Offer offer : kWordOffers) {
    cases += "    " + name_of(offer) + ") _tarvio_words '" + joined(words_of(offer), " ") +
             "' \"$2\" ;;\n";
  }
  return cases;
}

}  // namespace

std::string bash() {
  std::string text = std::string(kHead) + kTail;
  text = with(text, "@values@", value_cases());
  text = with(text, "@commands@", command_cases());
  return with(text, "@words@", word_cases());
}

}  // namespace completions
