// The commands of the program, and the options that all of them have.
#ifndef TARVIO_CLIENT_COMMANDS_COMMAND_LIST_H
#define TARVIO_CLIENT_COMMANDS_COMMAND_LIST_H

#include <span>
#include <string_view>
#include <vector>

#include "commands/command.h"

namespace client {

// In the order of the help.
std::span<const Command* const> all_commands();

// Null for a word that is not a command.
const Command* find_command(std::string_view word);

// Options of every command.
inline constexpr Option kJson = {.name = "json",
                                 .help = "print JSON for scripts instead of text for people"};
inline constexpr Option kQuiet = {
    .name = "quiet", .letter = 'q', .help = "print only errors, and JSON with --json"};
inline constexpr Option kHelp = {.name = "help", .letter = 'h', .help = "print this help"};
inline constexpr Option kVersion = {.name = "version", .letter = 'V', .help = "print the version"};
// Of every command that uses the manager.
inline constexpr Option kWaitManager = {
    .name = "wait-manager",
    .value = "SECONDS",
    .help = "first wait so long for a manager that is not there yet; default 10, 0 waits forever",
    .fallback = "10"};

// All options that a command takes, in the order of its help; without a command, those that the
// help of the program shows.
std::vector<Option> options_of(const Command* command);

}  // namespace client

#endif
