// What an operator asks of the board: JSON in, a line of words for tarvio out.
#ifndef TARVIO_AGENT_BOARD_REQUEST_H
#define TARVIO_AGENT_BOARD_REQUEST_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "terminal/json.h"

namespace agent {

using client::Json;

inline constexpr size_t kMaxRequestBytes = 65536;

// Why a request is not accepted, for its answer.
class Refusal : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A file that a request brings, or takes away.
struct Transfer {
  std::string url;
  std::string sha256;  // in lower case; of what comes
  uint64_t size = 0;
};

// What must not run at the same time as another such request.
enum class Room { kAny, kPackagesAndFlash };

// What becomes of a request that the board's power has cut short.
enum class AfterCut { kReport, kRunAgain };

struct Request {
  std::string id;
  std::string command;
  Json arguments;                  // as they came
  uint64_t work = 0;               // of both: what makes it another request than one with its id
  double seconds = 0;              // after its sending, in which it must begin
  std::vector<std::string> words;  // for tarvio, without the file that comes
  Transfer download;               // before; without a URL for none
  Transfer upload;                 // afterwards
  Room room = Room::kAny;
  AfterCut after_cut = AfterCut::kReport;
};

// Throws a Refusal.
//
// payload   as it came.
// settings  whether packages need a signature.
Request parse_request(const std::string& payload, bool requires_signature);

// The id of a request that is refused, for the answer; empty for none.
std::string id_in(const std::string& payload);

}  // namespace agent

#endif
