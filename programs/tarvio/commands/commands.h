// The commands of tarvio, and what each of them takes.
#ifndef TARVIO_CLIENT_COMMANDS_COMMANDS_H
#define TARVIO_CLIENT_COMMANDS_COMMANDS_H

#include <string_view>

namespace client {

enum class Command {
  kNone,
  kStatus,
  kStart,
  kStop,
  kStartAll,
  kStopAll,
  kList,
  kInstall,
  kRemove,
  kFiles,
  kCheck,
  kInspect,
  kPack,
  kAreas,
  kBackup,
  kRestore,
};

enum class Option : unsigned {
  kHelp,
  kVersion,
  kJson,
  kTimeout,
  kApps,
  kCategory,
  kSubcategory,
  kName,
  kForce,
  kOutput,
  kWatch,
  kTo,
  kWorkDirectory,
  kOverwrite,
  kQuiet,
  kYes,
  kVerify,
  kNoVerify,
};

// A set of options.
class OptionSet {
 public:
  template <typename... Options>
  explicit constexpr OptionSet(Options... options) : bits_((0U | ... | bit_of(options))) {}
  [[nodiscard]] constexpr bool has(Option option) const { return (bits_ & bit_of(option)) != 0; }

 private:
  static constexpr unsigned bit_of(Option option) { return 1U << static_cast<unsigned>(option); }

  unsigned bits_;
};

// What a command works on: one where the word is singular, else one or more.
enum class Operands {
  kNone,
  kOptionalApplication,
  kApplication,
  kDirectory,
  kFile,
  kFiles,
  kPackages,
  kAreas
};

struct CommandRow {
  const char* word;
  Command command;
  Operands operands;
  OptionSet options;       // beside those that every command knows
  double timeout_seconds;  // unless the line tells another
  const char* help;
};

// Null for a word that is no command.
const CommandRow* find_command(std::string_view word);

// The help of a command; of the whole program for Command::kNone.
const char* help_of(Command command);

}  // namespace client

#endif
