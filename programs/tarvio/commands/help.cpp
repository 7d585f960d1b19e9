#include "commands/help.h"

namespace client {

// What several texts share. Adjacent literals, so that each text is one constant.
#define JSON_OPTION "      --json             print JSON for scripts instead of text for people\n"
#define HELP_OPTION "  -h, --help             print this help\n"
#define TIMEOUT_OPTION                                                            \
  "      --timeout SECONDS  give up when the manager has not answered by then;\n" \
  "                         default 30, 0 waits for ever\n"
#define MANAGER_OPTIONS JSON_OPTION TIMEOUT_OPTION HELP_OPTION
#define TOOLS_OPTIONS                                                                 \
  JSON_OPTION                                                                         \
  "      --timeout SECONDS  end a tool that is not done by then, and fail; default\n" \
  "                         600, 0 waits for ever\n" HELP_OPTION
#define SEVERAL_OPERANDS "One that fails does not keep the others from being worked on.\n"
#define TOOLS_EXIT_STATUS                                                                    \
  "\n"                                                                                       \
  "exit status: 0 done, 1 failed for one or more, 5 a tool was not done in time, 64 wrong\n" \
  "command line\n"
#define FIRST_MATCH                                                                    \
  "\n"                                                                                 \
  "The manager acts on the first application whose name contains NAME, from Z to A:\n" \
  "give the whole name to be sure. 'tarvio list --category application' shows them.\n"
#define REQUEST_EXIT_STATUS \
  "\n"                      \
  "exit status: 0 done, 1 failed, 3 no manager, 5 no answer in time, 64 wrong command line\n"

const char kGeneralHelp[] =
    "usage: tarvio COMMAND [OPTION]...\n"
    "\n"
    "Shows and changes what the resident manager tarviod knows of this device's applications,\n"
    "works on packages and package files, and saves and restores its flash memory.\n"
    "\n"
    "  status [NAME]     print the statuses, or the one of an application\n"
    "  start NAME        start an application\n"
    "  stop NAME         stop an application\n"
    "  start-all         start all applications\n"
    "  stop-all          stop all applications\n"
    "  list              list the installed packages\n"
    "  install FILE...   install package files\n"
    "  remove NAME...    remove installed packages\n"
    "  files NAME...     list the files of installed packages\n"
    "  check FILE...     tell whether package files fit on this device\n"
    "  inspect FILE...   tell what package files hold\n"
    "  pack DIR -o FILE  build a package file from a directory\n"
    "  areas             list the areas of the flash memory\n"
    "  backup AREA... --to FILE\n"
    "                    save areas of the flash memory into an image package\n"
    "  restore FILE      write an image package to the flash memory\n"
    "\n" JSON_OPTION
    "      --timeout SECONDS  give up when it takes longer; 0 waits for ever\n" HELP_OPTION
    "  -V, --version          print the version\n"
    "\n"
    "'tarvio COMMAND --help' tells more. Options may stand before or after the "
    "command.\n" REQUEST_EXIT_STATUS "(status NAME: the state of the application, see there)\n";

const char kStatusHelp[] =
    "usage: tarvio status [NAME] [OPTION]...\n"
    "\n"
    "Prints the status of everything that the manager watches, or of the application NAME (its\n"
    "whole name). States: normal, warning, error. An application has a status once it was\n"
    "started, until it is stopped.\n"
    "\n"
    "      --apps             applications only\n"
    "      --watch            go on, and show each change: on a terminal in its place, else as\n"
    "                         one more line\n" MANAGER_OPTIONS
    "\n"
    "exit status: 0 done, 1 failed, 3 no manager, 5 no answer in time, 64 wrong command line;\n"
    "with NAME the state decides: 0 normal, 1 warning, 2 error, 4 no such status\n";

const char kStartHelp[] =
    "usage: tarvio start NAME [OPTION]...\n"
    "\n"
    "Starts an application. One that is started already stays as it is. Started means that its\n"
    "process was made, not that the program in it runs well.\n" FIRST_MATCH
    "\n" MANAGER_OPTIONS REQUEST_EXIT_STATUS;

const char kStopHelp[] =
    "usage: tarvio stop NAME [OPTION]...\n"
    "\n"
    "Stops an application. One that is stopped already stays as it is.\n" FIRST_MATCH
    "\n" MANAGER_OPTIONS REQUEST_EXIT_STATUS;

const char kStartAllHelp[] =
    "usage: tarvio start-all [OPTION]...\n"
    "\n"
    "Starts all applications one after the other. The manager tries each again until it has\n"
    "started, and answers nobody meanwhile.\n"
    "\n" MANAGER_OPTIONS REQUEST_EXIT_STATUS;

const char kStopAllHelp[] =
    "usage: tarvio stop-all [OPTION]...\n"
    "\n"
    "Stops all applications one after the other, which takes a second or more for each. The\n"
    "manager answers nobody meanwhile.\n"
    "\n" MANAGER_OPTIONS REQUEST_EXIT_STATUS;

const char kListHelp[] =
    "usage: tarvio list [OPTION]...\n"
    "\n"
    "Lists the installed packages. Needs no manager.\n"
    "\n"
    "      --category C       only packages of this category: image, application or other\n"
    "      --subcategory S    only packages of this subcategory: native, java, browser, jsp or\n"
    "                         other\n"
    "      --name N           only the package with this name\n" JSON_OPTION HELP_OPTION
    "\n"
    "exit status: 0 done, 1 failed, 64 wrong command line\n";

const char kInstallHelp[] =
    "usage: tarvio install FILE... [--force] [OPTION]...\n"
    "\n"
    "Installs package files, whose names end in .tbx, by opkg. What opkg tells is held against "
    "what\n"
    "is installed then. The manager learns of a new application at its next "
    "start.\n" SEVERAL_OPERANDS
    "\n"
    "      --force            install in spite of missing dependencies, older or equal versions "
    "and\n"
    "                         files of other packages\n" TOOLS_OPTIONS TOOLS_EXIT_STATUS;

const char kRemoveHelp[] =
    "usage: tarvio remove NAME... [--force] [OPTION]...\n"
    "\n"
    "Removes installed packages, with their whole names, by opkg. What opkg tells is held against\n"
    "what is installed then. " SEVERAL_OPERANDS
    "\n"
    "      --force            remove in spite of packages that depend on it\n" TOOLS_OPTIONS
        TOOLS_EXIT_STATUS;

const char kFilesHelp[] =
    "usage: tarvio files NAME... [OPTION]...\n"
    "\n"
    "Lists the files of installed packages, with their whole names, as opkg tells "
    "them.\n" SEVERAL_OPERANDS "\n" TOOLS_OPTIONS TOOLS_EXIT_STATUS;

const char kCheckHelp[] =
    "usage: tarvio check FILE... [OPTION]...\n"
    "\n"
    "Tells whether what package files hold fits into the free space of the file system that df\n"
    "lists first. " SEVERAL_OPERANDS "\n" TOOLS_OPTIONS
    "\n"
    "exit status: 0 all fit, 1 one or more do not or failed, 5 a tool was not done in time, 64 "
    "wrong\n"
    "command line\n";

const char kInspectHelp[] =
    "usage: tarvio inspect FILE... [OPTION]...\n"
    "\n"
    "Tells what package files hold: name, version, category, subcategory and, of an image, the\n"
    "targets of its data. Nothing is installed. " SEVERAL_OPERANDS
    "\n" TOOLS_OPTIONS TOOLS_EXIT_STATUS;

const char kPackHelp[] =
    "usage: tarvio pack DIR -o FILE [OPTION]...\n"
    "\n"
    "Builds a package file, whose name ends in .tbx, from a directory that holds\n"
    "\n"
    "  control                the keys of opkg: Package, Version, Maintainer, Architecture ...\n"
    "  tqcontrol              TqPackageCategory, TqPackageSubCategory, TqDataTarget\n"
    "  tqstartapp, tqstopapp  programs that start and stop the application, if there are such\n"
    "  preinst, postinst, prerm, postrm, conffiles\n"
    "                         what opkg knows besides, if there is such\n"
    "  data/                  the files to install, as they are to lie below /\n"
    "\n"
    "The same directory gives the same bytes each time.\n"
    "\n"
    "  -o, --output FILE      the package file, which is replaced when it is there\n" TOOLS_OPTIONS
        TOOLS_EXIT_STATUS;

#define FLASH_OPTIONS                                                                          \
  "      --quiet            tell no progress\n" JSON_OPTION                                    \
  "      --timeout SECONDS  end a step that is not done by then, and fail; default 0, which\n" \
  "                         waits for ever\n" HELP_OPTION

const char kAreasHelp[] =
    "usage: tarvio areas [OPTION]...\n"
    "\n"
    "Lists the areas of the flash memory: name, device, how much a backup keeps, and how it saves\n"
    "them.\n"
    "\n" JSON_OPTION HELP_OPTION
    "\n"
    "exit status: 0 done, 1 failed, 64 wrong command line\n";

const char kBackupHelp[] =
    "usage: tarvio backup AREA... --to FILE [OPTION]...\n"
    "\n"
    "Saves areas of the flash memory, which 'tarvio areas' lists, into an image package. FILE\n"
    "appears when all of it is there: a failure or a power cut leaves what was there before. One\n"
    "backup or restore runs at a time.\n"
    "\n"
    "      --to FILE          the image package\n"
    "      --workdir DIR      make the directory for intermediate files there; default: beside "
    "FILE\n"
    "      --overwrite        replace FILE when it is there\n"
    "      --verify           read raw areas a second time and compare\n" FLASH_OPTIONS
    "\n"
    "exit status: 0 done, 1 failed, 5 a step was not done in time, 64 wrong command line\n";

const char kRestoreHelp[] =
    "usage: tarvio restore FILE [OPTION]...\n"
    "\n"
    "Erases the areas of the flash memory that an image package holds, and writes them anew. What\n"
    "the package holds is checked first. An area that fails does not keep the others from being\n"
    "written. Each one is read again and compared.\n"
    "\n"
    "      --yes              do not ask\n"
    "      --force            also write what the system runs from or has mounted\n"
    "      --no-verify        do not read the areas again\n"
    "      --workdir DIR      make the directory for intermediate files there; default: beside "
    "FILE\n" FLASH_OPTIONS
    "\n"
    "exit status: 0 done, 1 failed for one or more, 5 a step was not done in time, 64 wrong "
    "command\n"
    "line\n";

}  // namespace client
