// What a command of tarvio is. Each *_command.cpp defines one, whole: the command line, the help
// and the completions of the shells are made from it.
#ifndef TARVIO_CLIENT_COMMANDS_COMMAND_H
#define TARVIO_CLIENT_COMMANDS_COMMAND_H

#include <cstddef>
#include <span>
#include <stdexcept>
#include <string>

#include "process/failure.h"

namespace client {

// What a shell offers for an operand, or for the value of an option.
enum class Offer {
  kNothing,
  kApplications,
  kPackages,
  kPackageFiles,
  kFiles,
  kDirectories,
  kAreas,
  kCategories,
  kSubcategories,
  kWaitStates,
  kCommands,
  kBoards,
  kRollouts,
};

// Options of the same name have the same letter and take a value or not in every command: they may
// stand before the command, when it is not known yet.
struct Option {
  const char* name;
  char letter = '\0';           // short for the name; 0 for none
  const char* value = nullptr;  // what its value is called; null for a flag
  Offer offer = Offer::kNothing;
  const char* help = nullptr;  // null: accepted, but neither shown nor offered
  bool is_required = false;
  // What counts when the value is left out, and then a value needs "="; null: it may not be.
  const char* fallback = nullptr;
};

struct Operands {
  const char* name = "";  // what each is called
  size_t min = 0;
  size_t max = 0;
  const char* missing = "";  // what to call it when there is none
  Offer offer = Offer::kNothing;
  const char* help = nullptr;  // a paragraph of the help; null for none
};

inline constexpr size_t kAnyNumber = static_cast<size_t>(-1);
inline constexpr Operands kNoOperands;
inline constexpr Operands kOneApplication = {
    .name = "NAME",
    .min = 1,
    .max = 1,
    .missing = "the NAME of the application",
    .offer = Offer::kApplications,
    .help =
        "NAME must be exact, unless --match is given; 'tarvio list --category application' shows "
        "the names. A tarviod from before exact names takes the first application whose name "
        "contains NAME: with such a one, NAME is refused unless it comes first."};
inline constexpr Operands kPackageNames = {
    .name = "NAME",
    .min = 1,
    .max = kAnyNumber,
    .missing = "the NAME of the package",
    .offer = Offer::kPackages,
    .help = "NAME must be exact. If one package fails, the others are still processed."};
inline constexpr Operands kPackageFiles = {
    .name = "FILE",
    .min = 1,
    .max = kAnyNumber,
    .missing = "the package FILE",
    .offer = Offer::kPackageFiles,
    .help = "If one file fails, the others are still processed."};

struct Timeout {
  double seconds;  // unless the line names another; 0 waits forever
  Option option;
};

constexpr Option timeout_option(const char* help) {
  return {.name = "timeout", .value = "SECONDS", .help = help};
}

inline constexpr Timeout kManagerTimeout = {
    30, timeout_option("give up when the manager has not answered by then; default 30, 0 waits "
                       "forever")};
inline constexpr Timeout kAllTimeout = {
    30, timeout_option("give up when the manager has not answered by then; default 30, and 16 "
                       "more for each application; 0 waits forever")};
// An installation may take its time, and should not be interrupted early.
inline constexpr Timeout kToolsTimeout = {
    600, timeout_option("stop a tool that is not done by then, and fail; default 600, 0 waits "
                        "forever")};
inline constexpr Timeout kFlashTimeout = {
    0, timeout_option("stop a step that is not done by then, and fail; default 0, which waits "
                      "forever")};
// For a command that never waits: scripts may pass it to any.
inline constexpr Timeout kNoTimeout = {0, timeout_option(nullptr)};

// What a command needs of the manager before it can do its work.
enum class Need { kNothing, kAnswer, kState };

inline constexpr char kManagerStatuses[] = "0 done, 1 failed, 3 no manager, 5 no answer in time";
inline constexpr char kToolsStatuses[] = "0 done, 1 failed for one or more, 5 a tool timed out";
inline constexpr char kGuardedStatuses[] =
    "0 done, 1 failed for one or more, 5 a tool timed out, 6 the signature or the version of one "
    "or more is not accepted";

// A command line that is wrong; the program adds where to find help.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What a command comes to. The program prints it, in the same way for every command;
// only progress is printed before.
struct Result {
  ExitStatus status = kDone;
  std::string text = {};       // for people
  std::string json = {};       // in place of the text with --json
  std::string complaint = {};  // on standard error, after the output
};

struct Arguments;

struct Command {
  const char* word;
  Operands operands;
  std::span<const Option> options;  // its own, beside those of every command
  Timeout timeout;
  Need need = Need::kNothing;
  const char* summary;      // half a sentence
  const char* description;  // lines that are too long are wrapped
  const char* statuses;     // the exit statuses, without that of a wrong command line
  // Throws UsageError before anything is done, or a Failure.
  Result (*run)(const Arguments& arguments);
};

}  // namespace client

#endif
