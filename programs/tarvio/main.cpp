#include <exception>

#include "app_commands.h"
#include "change_commands.h"
#include "check_command.h"
#include "child.h"
#include "exit_status.h"
#include "files_command.h"
#include "inspect_command.h"
#include "list_command.h"
#include "options.h"
#include "output.h"
#include "pack_command.h"
#include "status_command.h"
#include "tarvio/log.h"

namespace {

constexpr int kSilent = 4;  // the client tells people itself what the library would log

int run(const client::Options& options) {
  switch (options.command) {
    case client::Command::kStatus:
      return client::run_status(options);
    case client::Command::kList:
      return client::run_list(options);
    case client::Command::kInstall:
      return client::run_install(options);
    case client::Command::kRemove:
      return client::run_remove(options);
    case client::Command::kFiles:
      return client::run_files(options);
    case client::Command::kCheck:
      return client::run_check(options);
    case client::Command::kInspect:
      return client::run_inspect(options);
    case client::Command::kPack:
      return client::run_pack(options);
    default:
      return client::run_app_command(options);
  }
}

}  // namespace

int main(int argc, char** argv) {
  tq_set_log_level(kSilent);
  try {
    const client::CommandLine line = client::parse_command_line(argc, argv);
    if (line.options) return run(*line.options);
    if (!line.is_wrong) return client::print(line.text) ? client::kDone : client::kFailed;
    client::complain(line.text);
    return client::kUsage;
  } catch (const client::Interrupted&) {
    return client::kFailed;  // the signal has ended the process before, unless it was changed
  } catch (const std::exception& error) {
    client::complain(error.what());
    return client::kFailed;
  }
}
