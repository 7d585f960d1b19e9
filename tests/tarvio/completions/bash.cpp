#include "completions.h"

namespace completions {

namespace {

using client::Command;
using client::Offer;
using client::Option;

constexpr char kHead[] =
    R"sh(# bash completion for @program@. Written by scripts/completions from the commands themselves.

# What the value of an option is; empty for a flag.
@function@_set_value() {
  value=
  case $1 in
@values@  esac
}

# What may follow a command: its options, and how many operands of which kind.
@function@_set_command() {
  kind=nothing max=0
  case $1 in
@commands@  esac
}
)sh";

// What does not depend on the commands.
constexpr char kTail[] = R"sh(
# The first column of a table of the program, but for what stands on the line already. Names are quoted for the
# shell: what a package is called must not become a command.
# usage: @function@_names BEGIN COMMAND [ARGUMENT]...
@function@_names() {
  local begin=$1 name quoted
  shift
  while read -r name _; do
    [[ $name == "$begin"* && " ${given[*]:1} " != *" $name "* ]] || continue
    printf -v quoted %q "$name"
    COMPREPLY+=("$quoted")
  done < <("$program" "$@" 2>/dev/null </dev/null | tail -n +2)
}

# Directories, and with a pattern the files that match it. The shell quotes them.
# usage: @function@_files BEGIN [PATTERN]
@function@_files() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(
    compgen -d -- "$1"
    [[ ! ${2-} ]] || compgen -f -X "!$2" -- "$1"
  )
}

# usage: @function@_offer KIND BEGIN
@function@_offer() {
  case $1 in
@offers@  esac
}

@function@_words() {
  mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

@function@() {
  local program=$1 current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local at given=() value options kind max
  COMPREPLY=()

  # "--option=value" comes as three words.
  if [[ $current == = ]]; then
    current=
  elif [[ $previous == = ]]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  @function@_set_value "$previous"
  if [[ $value ]]; then
    @function@_offer "$value" "$current"
    return
  fi

  for ((at = 1; at < COMP_CWORD; at++)); do
    @function@_set_value "${COMP_WORDS[at]}"
    if [[ $value ]]; then
      [[ ${COMP_WORDS[at + 1]} == = ]] && ((at++))
      ((at++))
    elif [[ ${COMP_WORDS[at]} == = ]]; then
      ((at++))
    elif [[ ${COMP_WORDS[at]} != -* ]]; then
      given+=("${COMP_WORDS[at]}")
    fi
  done

  @function@_set_command "${given[0]-}"
  if [[ $current == -* ]]; then
    @function@_words "$options" "$current"
  elif ((${#given[@]} == 0)); then
    @function@_offer commands "$current"
  elif ((${#given[@]} <= max)); then
    @function@_offer "$kind" "$current"
  fi
}

complete -F @function@ @program@
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
    if (command->operands.offer != Offer::kNothing) {
      const bool is_one = command->operands.max == 1;
      cases += "      kind=" + name_of(command->operands.offer) +
               " max=" + (is_one ? "1" : "1000") + "\n";
    }
    cases += "      ;;\n";
  }
  return cases + "    *) options= ;;\n";
}

std::string offer_cases() {
  std::string cases;
  const auto add = [&](Offer offer, const std::string& command) {
    if (is_offered(offer)) cases += "    " + name_of(offer) + ") @function@_" + command + " ;;\n";
  };
  for (const NameOffer& each : kNameOffers) {
    add(each.offer, std::string("names \"$2\" ") + each.arguments);
  }
  add(Offer::kPackageFiles, "files \"$2\" '*.tbx'");
  add(Offer::kFiles, "files \"$2\" '*'");
  add(Offer::kDirectories, "files \"$2\"");
  for (const Offer offer : kWordOffers) {
    add(offer, "words '" + joined(words_of(offer), " ") + "' \"$2\"");
  }
  return cases;
}

}  // namespace

std::string bash() {
  std::string text = std::string(kHead) + kTail;
  text = with(text, "@values@", value_cases());
  text = with(text, "@commands@", command_cases());
  return of_program(with(text, "@offers@", offer_cases()));
}

}  // namespace completions
