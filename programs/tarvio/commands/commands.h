// The list of the commands of tarvio. A *_command.cpp that is not in it is an error of the build.
#ifndef TARVIO_CLIENT_COMMANDS_COMMANDS_H
#define TARVIO_CLIENT_COMMANDS_COMMANDS_H

#include <span>
#include <string_view>
#include <vector>

#include "commands/command.h"

namespace client {

extern const Command kStatusCommand;
extern const Command kStartCommand;
extern const Command kStopCommand;
extern const Command kRestartCommand;
extern const Command kStartAllCommand;
extern const Command kStopAllCommand;
extern const Command kIsRunningCommand;
extern const Command kWaitCommand;
extern const Command kLogsCommand;
extern const Command kMetricsCommand;
extern const Command kRefreshCommand;
extern const Command kListCommand;
extern const Command kInstallCommand;
extern const Command kRemoveCommand;
extern const Command kFilesCommand;
extern const Command kCheckCommand;
extern const Command kInspectCommand;
extern const Command kPackCommand;
extern const Command kKeygenCommand;
extern const Command kSignCommand;
extern const Command kVerifyCommand;
extern const Command kAreasCommand;
extern const Command kBackupCommand;
extern const Command kRestoreCommand;
extern const Command kDoctorCommand;
extern const Command kHelpCommand;

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
