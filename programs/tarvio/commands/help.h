// Help texts: of the whole program, and of each command.
#ifndef TARVIO_CLIENT_COMMANDS_HELP_H
#define TARVIO_CLIENT_COMMANDS_HELP_H

namespace client {

extern const char kGeneralHelp[];
extern const char kStatusHelp[];
extern const char kStartHelp[];
extern const char kStopHelp[];
extern const char kStartAllHelp[];
extern const char kStopAllHelp[];
extern const char kListHelp[];
extern const char kInstallHelp[];
extern const char kRemoveHelp[];
extern const char kFilesHelp[];
extern const char kCheckHelp[];
extern const char kInspectHelp[];
extern const char kPackHelp[];
extern const char kAreasHelp[];
extern const char kBackupHelp[];
extern const char kRestoreHelp[];

}  // namespace client

#endif
