// Where the operator's settings are, and what is in them.
#ifndef TARVIO_FLEET_TOOL_FLEET_SETTINGS_H
#define TARVIO_FLEET_TOOL_FLEET_SETTINGS_H

#include <string>

#include "commands/arguments.h"
#include "fleet/broker.h"

namespace fleet_tool {

struct Settings {
  fleet::Broker broker;
  std::string operator_name;
};

// Of every command that connects.
inline constexpr client::Option kConfig = {
    .name = "config",
    .value = "FILE",
    .offer = client::Offer::kFiles,
    .help = "settings; default ~/.config/tarvio/fleet.conf, else /etc/tarvio/fleet.conf"};

// Throws a Failure that names the file, with cause and remedy.
Settings settings_in(const client::Arguments& arguments);

// The directory of this user for what is kept of rollouts, which exists then. Throws a Failure.
std::string state_directory();

}  // namespace fleet_tool

#endif
