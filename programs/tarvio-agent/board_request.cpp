#include "board_request.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "fleet/payload.h"
#include "fleet/topics.h"

namespace agent {

namespace {

constexpr size_t kMaxNameBytes = 256;
constexpr size_t kMaxUrlBytes = 2048;
constexpr size_t kSha256Digits = 64;
constexpr uint64_t kMaxDownloadBytes = uint64_t{4} << 30U;
constexpr int64_t kMaxLines = 10'000;
constexpr double kMaxSeconds = 86'400;

// The members of an object, each of which must be taken.
class Members {
 public:
  Members(const Json& object, const char* what) : rest_(object), what_(what) {
    if (!object.is_object()) throw Refusal(std::string(what) + " must be a JSON object");
  }

  Json take(const char* name) {
    const auto found = rest_.find(name);
    if (found == rest_.end()) {
      throw Refusal("member '" + std::string(name) + "' of " + what_ + " is missing");
    }
    Json value = *found;
    rest_.erase(found);
    return value;
  }
  Json take_or(const char* name, const Json& otherwise) {
    return rest_.contains(name) ? take(name) : otherwise;
  }
  void check_all_taken() const {
    if (!rest_.empty()) {
      throw Refusal("unknown member '" + rest_.begin().key() + "' of " + what_);
    }
  }

 private:
  Json rest_;
  std::string what_;
};

std::string text_in(Members& members, const char* name, size_t most = kMaxNameBytes) {
  const Json value = members.take(name);
  std::string text = value.is_string() ? value.get<std::string>() : "";
  if (text.empty() || text.size() > most || text.find('\0') != std::string::npos) {
    throw Refusal("member '" + std::string(name) + "' is not a text of 1 to " +
                  std::to_string(most) + " bytes");
  }
  return text;
}

// A name that stands in the place of an operand, so no option.
std::string name_in(Members& members, const char* name) {
  std::string text = text_in(members, name);
  if (text.starts_with('-')) {
    throw Refusal("member '" + std::string(name) + "' is not a name: '" + text + "'");
  }
  return text;
}

std::string url_in(Members& members) {
  std::string url = text_in(members, "url", kMaxUrlBytes);
  if (!url.starts_with("https://")) throw Refusal("member 'url' does not begin with https://");
  return url;
}

std::string sha256_in(Members& members) {
  std::string digits = text_in(members, "sha256");
  std::transform(digits.begin(), digits.end(), digits.begin(), [](char digit) {
    return digit >= 'A' && digit <= 'F' ? static_cast<char>(digit - 'A' + 'a') : digit;
  });
  if (digits.size() != kSha256Digits ||
      digits.find_first_not_of("0123456789abcdef") != std::string::npos) {
    throw Refusal("member 'sha256' is not 64 hexadecimal digits");
  }
  return digits;
}

uint64_t size_in(Members& members) {
  const Json value = members.take("size");
  const uint64_t size = value.is_number_unsigned() ? value.get<uint64_t>() : 0;
  if (size == 0 || size > kMaxDownloadBytes) {
    throw Refusal("member 'size' is not a number of bytes from 1 to " +
                  std::to_string(kMaxDownloadBytes));
  }
  return size;
}

using Fill = void (*)(Members& arguments, Request& request);

void take_app(Members& arguments, Request& request) {
  request.words = {request.command, name_in(arguments, "app")};
}

void take_nothing(Members&, Request& request) { request.words = {request.command}; }

void take_package_to_install(Members& arguments, Request& request) {
  request.download = {
      .url = url_in(arguments), .sha256 = sha256_in(arguments), .size = size_in(arguments)};
  request.words = {"install"};
  const Json force = arguments.take_or("force", false);
  if (!force.is_boolean()) throw Refusal("member 'force' is not true or false");
  if (force) request.words.emplace_back("--force");
}

void take_package_to_remove(Members& arguments, Request& request) {
  request.words = {"remove", name_in(arguments, "package")};
}

void take_areas(Members& arguments, Request& request) {
  request.words = {"backup"};
  const Json areas = arguments.take("areas");
  if (!areas.is_array()) throw Refusal("member 'areas' is not a list of names");
  for (const Json& area : areas) {
    if (!area.is_string() || !fleet::is_name(area.get<std::string>())) {
      throw Refusal("member 'areas' is not a list of names");
    }
    request.words.push_back(area);
  }
  if (request.words.size() == 1) throw Refusal("member 'areas' is not a list of names");
  request.upload.url = url_in(arguments);
}

void take_lines(Members& arguments, Request& request) {
  const Json lines = arguments.take_or("lines", 100);
  if (!lines.is_number_integer() || lines < 1 || lines > kMaxLines) {
    throw Refusal("member 'lines' is not a number from 1 to " + std::to_string(kMaxLines));
  }
  request.words = {"logs", "--lines", std::to_string(lines.get<int64_t>())};
  const Json app = arguments.take_or("app", nullptr);
  if (app.is_null()) return;
  Members named(Json{{"app", app}}, "the arguments");
  request.words.push_back(name_in(named, "app"));
}

// All that a board can be asked.
struct Row {
  std::string_view command;
  Fill fill;
  Room room;
  AfterCut after_cut;
};

constexpr std::array kTable = {
    Row{"start", take_app, Room::kAny, AfterCut::kReport},
    Row{"stop", take_app, Room::kAny, AfterCut::kReport},
    Row{"restart", take_app, Room::kAny, AfterCut::kReport},
    Row{"refresh", take_nothing, Room::kAny, AfterCut::kReport},
    Row{"list", take_nothing, Room::kAny, AfterCut::kReport},
    Row{"install", take_package_to_install, Room::kPackagesAndFlash, AfterCut::kRunAgain},
    Row{"remove", take_package_to_remove, Room::kPackagesAndFlash, AfterCut::kRunAgain},
    Row{"backup", take_areas, Room::kPackagesAndFlash, AfterCut::kReport},
    Row{"logs", take_lines, Room::kAny, AfterCut::kReport},
};

const Row& row_of(const std::string& command) {
  for (const Row& row : kTable) {
    if (row.command == command) return row;
  }
  throw Refusal("unknown command '" + command + "'");
}

// FNV-1a: accidents are told apart, and who may ask has no use for others.
uint64_t hash_of(std::string_view text) {
  uint64_t hash = 0xcbf29ce484222325;
  for (const char byte : text) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  }
  return hash;
}

}  // namespace

Request parse_request(const std::string& payload, bool requires_signature) {
  if (payload.size() > kMaxRequestBytes) {
    throw Refusal("the request has " + std::to_string(payload.size()) + " bytes, and " +
                  std::to_string(kMaxRequestBytes) + " are allowed");
  }
  const Json json = fleet::json_in(payload);
  if (json.is_discarded()) throw Refusal("the request is not JSON, or nested too deep");
  Members members(json, "the request");
  Request request;
  request.id = text_in(members, "id");
  if (!fleet::is_name(request.id)) throw Refusal("member 'id' is not a name");
  request.command = text_in(members, "command");
  request.arguments = members.take_or("arguments", Json::object());
  request.work = hash_of(request.command + client::line_of(request.arguments));
  const Json seconds = members.take("expires_in");
  request.seconds = seconds.is_number() ? seconds.get<double>() : 0;
  if (!(request.seconds > 0 && request.seconds <= kMaxSeconds)) {
    throw Refusal("member 'expires_in' is not a number of seconds up to " +
                  std::to_string(static_cast<int>(kMaxSeconds)));
  }
  members.check_all_taken();
  const Row& row = row_of(request.command);
  Members arguments(request.arguments, "the arguments");
  row.fill(arguments, request);
  arguments.check_all_taken();
  request.room = row.room;
  request.after_cut = row.after_cut;
  if (request.command == "install" && requires_signature) {
    request.words.emplace_back("--require-signature");
  }
  return request;
}

std::string id_in(const std::string& payload) {
  const Json json = payload.size() > kMaxRequestBytes ? Json() : fleet::json_in(payload);
  if (!json.is_object() || !json.contains("id") || !json["id"].is_string()) return "";
  const std::string id = json["id"];
  return fleet::is_name(id) ? id : "";
}

}  // namespace agent
