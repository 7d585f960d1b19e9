#include "commands/help.h"

#include "base/line_cutter.h"
#include "commands/command_list.h"
#include "program.h"

namespace client {

namespace {

constexpr size_t kWidth = 79;  // some terminals wrap at the last of 80 columns
constexpr size_t kCommandColumn = 20;
constexpr size_t kOptionColumn = 25;

// Breaks lines that reach past the width, and indents all but the first.
std::string wrapped(std::string_view text, size_t indent) {
  const std::string line_break = '\n' + std::string(indent, ' ');
  std::string lines;
  while (!text.empty()) {
    std::string_view line = tarvio::take_line(text);
    while (indent + line.size() > kWidth) {
      const size_t blank = line.rfind(' ', kWidth - indent);
      lines.append(line.substr(0, blank)).append(line_break);
      line.remove_prefix(blank + 1);
    }
    lines.append(line).append(text.empty() ? "\n" : line_break);
  }
  return lines;
}

// What something is called on the left, and what it is on the right.
std::string row(std::string left, size_t column, const char* right) {
  if (left.size() + 2 > column) {
    left += '\n' + std::string(column, ' ');
  } else {
    left.resize(column, ' ');
  }
  return left + wrapped(right, column);
}

std::string option_rows(const Command* command) {
  std::string rows;
  for (const Option& option : options_of(command)) {
    if (option.help == nullptr) continue;
    std::string left = option.letter == '\0' ? "      " : std::string("  -") + option.letter + ", ";
    left.append("--").append(option.name);
    if (option.fallback != nullptr) {
      left.append("[=").append(option.value).append("]");
    } else if (option.value != nullptr) {
      left.append(" ").append(option.value);
    }
    rows += row(std::move(left), kOptionColumn, option.help);
  }
  return rows;
}

std::string status_line(const std::string& statuses) {
  return wrapped("exit status: " + statuses + ", 64 wrong command line", 0);
}

std::string general_help() {
  const std::string name = kProgram.name;
  std::string help = "usage: " + name + " COMMAND [OPTION]...\n\n";
  help += wrapped(kProgram.purpose, 0);
  help += '\n';
  for (const Command* command : all_commands()) {
    help += row("  " + usage_of(*command), kCommandColumn, command->summary);
  }
  help += '\n' + option_rows(nullptr);
  help +=
      "\n'" + name + " COMMAND --help' shows more. Options may stand before or after COMMAND.\n\n";
  return help + status_line(kProgram.statuses) + kProgram.note;
}

}  // namespace

std::string help_of(const Command* command) {
  if (command == nullptr) return general_help();
  std::string help =
      std::string("usage: ") + kProgram.name + " " + usage_of(*command) + " [OPTION]...\n\n";
  help += wrapped(command->description, 0) + '\n';
  if (command->operands.help != nullptr) help += wrapped(command->operands.help, 0) + '\n';
  return help + option_rows(command) + '\n' + status_line(command->statuses);
}

std::string usage_of(const Command& command) {
  std::string usage = command.word;
  const Operands& operands = command.operands;
  if (operands.max > 0) {
    std::string name = operands.name;
    if (operands.min == 0) name = '[' + name + ']';
    usage += ' ' + name + (operands.max > 1 ? "..." : "");
  }
  for (const Option& option : command.options) {
    if (option.is_required) usage += ' ' + short_form(option);
  }
  return usage;
}

std::string short_form(const Option& option) {
  std::string form =
      option.letter == '\0' ? std::string("--") + option.name : std::string("-") + option.letter;
  if (option.value != nullptr) form.append(" ").append(option.value);
  return form;
}

}  // namespace client
