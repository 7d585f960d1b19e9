// Options that the commands for the flash memory share.
#ifndef TARVIO_CLIENT_COMMANDS_FLASH_OPTIONS_H
#define TARVIO_CLIENT_COMMANDS_FLASH_OPTIONS_H

#include <string>

#include "commands/arguments.h"

namespace client {

inline constexpr Option kWorkDirectory = {
    .name = "workdir",
    .value = "DIR",
    .offer = Offer::kDirectories,
    .help = "make the directory for intermediate files there; default: beside FILE"};
inline constexpr Option kVerify = {.name = "verify",
                                   .help = "read raw areas a second time and compare"};
inline constexpr Option kNoVerify = {.name = "no-verify", .help = "do not read the areas again"};

// For the command that does so anyway: takes its opposite back.
constexpr Option without_help(Option option) {
  option.help = nullptr;
  return option;
}

// Empty for the default. Throws UsageError.
std::string given_work_directory(const Arguments& arguments);

// Of --verify and --no-verify the last one counts.
bool wants_verification(const Arguments& arguments, bool is_default);

}  // namespace client

#endif
