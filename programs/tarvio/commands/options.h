// The command line of tarvio.
#ifndef TARVIO_CLIENT_COMMANDS_OPTIONS_H
#define TARVIO_CLIENT_COMMANDS_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "tarvio/package.h"

namespace client {

struct Options {
  Command command = Command::kNone;
  std::optional<std::string> name;    // of an application; in a listing, of a package
  std::vector<std::string> operands;  // files, packages or a directory
  bool json = false;
  bool only_applications = false;
  bool watch = false;
  bool force = false;
  bool overwrite = false;
  bool quiet = false;
  bool yes = false;     // do not ask
  bool verify = false;  // read the flash memory again and compare
  std::string output;   // file to write
  std::string
      work_directory;  // where that for intermediate files is made; empty: beside the package
  double timeout_seconds = 0;  // 0 waits for ever
  uint32_t category = TQ_CATEGORY_ANY;
  uint32_t subcategory = TQ_SUBCATEGORY_ANY;
};

struct CommandLine {
  std::optional<Options> options;  // none when there is nothing to be done but to tell `text`
  std::string text;                // help or version, or what is wrong with the line
  bool is_wrong = false;
};

CommandLine parse_command_line(int argc, const char* const* argv);

}  // namespace client

#endif
