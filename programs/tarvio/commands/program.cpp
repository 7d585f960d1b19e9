#include "commands/program.h"

#include <exception>

#include "commands/app_commands.h"
#include "commands/areas_command.h"
#include "commands/backup_command.h"
#include "commands/change_commands.h"
#include "commands/check_command.h"
#include "commands/files_command.h"
#include "commands/inspect_command.h"
#include "commands/list_command.h"
#include "commands/options.h"
#include "commands/pack_command.h"
#include "commands/restore_command.h"
#include "commands/status_command.h"
#include "process/child.h"
#include "process/exit_status.h"
#include "tarvio/log.h"
#include "terminal/output.h"

namespace client {

namespace {

constexpr int kSilent = 4;  // the client tells people itself what the library would log

int run(const Options& options) {
  switch (options.command) {
    case Command::kStatus:
      return run_status(options);
    case Command::kList:
      return run_list(options);
    case Command::kInstall:
      return run_install(options);
    case Command::kRemove:
      return run_remove(options);
    case Command::kFiles:
      return run_files(options);
    case Command::kCheck:
      return run_check(options);
    case Command::kInspect:
      return run_inspect(options);
    case Command::kPack:
      return run_pack(options);
    case Command::kAreas:
      return run_areas(options);
    case Command::kBackup:
      return run_backup(options);
    case Command::kRestore:
      return run_restore(options);
    default:
      return run_app_command(options);
  }
}

}  // namespace

int run_program(int argc, const char* const* argv) {
  tq_set_log_level(kSilent);
  try {
    const CommandLine line = parse_command_line(argc, argv);
    if (line.options) return run(*line.options);
    if (!line.is_wrong) return print(line.text) ? kDone : kFailed;
    complain(line.text);
    return kUsage;
  } catch (const Interrupted&) {
    return kFailed;  // the signal has ended the process before, unless it was changed
  } catch (const std::exception& error) {
    complain(error.what());
    return kFailed;
  }
}

}  // namespace client
