// /etc/tarvio/agent.conf.
#ifndef TARVIO_AGENT_AGENT_SETTINGS_H
#define TARVIO_AGENT_AGENT_SETTINGS_H

#include <string>
#include <vector>

#include "fleet/broker.h"

namespace agent {

inline constexpr char kSettingsFile[] = "/etc/tarvio/agent.conf";

struct Settings {
  fleet::Broker broker;
  std::string device;
  std::vector<std::string> tags;
  bool requires_signature = true;
  std::string download_ca_file;  // empty: the system's authorities
  std::string directory = "/var/lib/tarvio-agent";
  std::string run_as = "tarvio-agent";
};

// Throws std::runtime_error that names the file, or the line which is wrong, with cause and remedy.
Settings read_settings(const std::string& file);

}  // namespace agent

#endif
