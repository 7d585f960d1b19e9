#include "program.h"

#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <string>

#include "commands/arguments.h"
#include "commands/command_list.h"
#include "commands/help.h"
#include "process/child.h"
#include "process/failure.h"
#include "process/last_words.h"
#include "terminal/output.h"

namespace client {

namespace {

// A standard stream that is closed stays one that cannot be used, instead of the number of whatever
// is opened next.
void hold_closed_streams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) < 0) {
      (void)open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
}

// The one ending of all commands.
int finish(const Result& result, bool is_json) {
  const bool is_written = print(is_json ? result.json : result.text);
  if (!result.complaint.empty()) complain(result.complaint);
  return is_written ? result.status : kFailed;
}

int run(Arguments& arguments) {
  if (arguments.has(kHelp)) return finish({.text = help_of(arguments.command)}, false);
  if (!arguments.wrong.empty()) throw UsageError(arguments.wrong);
  if (arguments.has(kVersion)) {
    return finish({.text = std::string(kProgram.name) + " " TARVIO_VERSION "\n"}, false);
  }
  check_arguments(arguments);
  if (arguments.has(kQuiet) && !arguments.has(kJson)) silence_output();
  kProgram.prepare(arguments);
  return finish(arguments.command->run(arguments), arguments.has(kJson));
}

}  // namespace

int run_program(int argc, const char* const* argv) {
  hold_closed_streams();
  report_uncaught_exceptions();
  try {
    Arguments arguments = read_arguments(argc, argv);
    try {
      return run(arguments);
    } catch (const UsageError& error) {
      const std::string command =
          arguments.command == nullptr ? "" : std::string(" ") + arguments.command->word;
      complain(std::string(error.what()) + "; try '" + kProgram.name + command + " --help'");
      return kUsage;
    }
  } catch (const Interrupted&) {
    return kFailed;  // the signal has ended the process before, unless it was changed
  } catch (const Failure& failure) {
    complain(failure.what());
    return failure.status();
  } catch (const std::exception& error) {
    complain(cause_of(error));
    return kFailed;
  }
}

}  // namespace client
