// The topics of a fleet, and the names in them.
#ifndef TARVIO_FLEET_TOPICS_H
#define TARVIO_FLEET_TOPICS_H

#include <string>
#include <string_view>

namespace fleet {

inline constexpr std::string_view kDevices = "tarvio/v1/";
inline constexpr std::string_view kRollouts = "tarvio-fleet/v1/rollouts/";
inline constexpr std::string_view kMarks = "tarvio-fleet/v1/marks/";

// What a board keeps at the broker, each under its name.
inline constexpr char kOnline[] = "online";
inline constexpr char kSystem[] = "system";
inline constexpr char kApps[] = "apps";
inline constexpr char kPackages[] = "packages";

// What it is asked, and under which it answers.
inline constexpr char kRequest[] = "request";
inline constexpr char kAnswer[] = "answer/";
inline constexpr char kProgress[] = "progress";

// Whether a text may be the name of a board or of an operator: 1 to 64 letters, digits, '.', '_'
// and '-', and a letter or a digit first. It is one level of a topic then, and harmless in a file
// name.
bool is_name(std::string_view text);

// The topic of a board with the given end.
std::string topic_of(std::string_view device, std::string_view end);

// Of a topic that belongs to a board.
struct DeviceTopic {
  std::string_view device;
  std::string_view end;  // all after the name
};

// Empty names for another topic. The views point into the topic.
DeviceTopic device_topic(std::string_view topic);

}  // namespace fleet

#endif
