// The list of the commands of tarvio. A *_command.cpp that is not in it is an error of the build.
#ifndef TARVIO_CLIENT_COMMANDS_COMMANDS_H
#define TARVIO_CLIENT_COMMANDS_COMMANDS_H

#include "commands/command.h"
#include "commands/command_list.h"

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

}  // namespace client

#endif
