// A program of commands: what it is, and its one way from the command line to the exit status.
#ifndef TARVIO_CLIENT_PROGRAM_H
#define TARVIO_CLIENT_PROGRAM_H

#include <span>

#include "commands/command.h"

namespace client {

struct Program {
  const char* name;
  const char* purpose;
  std::span<const Command* const> commands;  // in the order of the help
  const char* statuses;                      // the exit statuses of most commands
  const char* note;                          // lines below them; empty for none
  // Called before each command that is run.
  void (*prepare)(const Arguments& arguments);
};

// Each program defines its own.
extern const Program kProgram;

// All of the program; returns the exit status.
int run_program(int argc, const char* const* argv);

}  // namespace client

#endif
