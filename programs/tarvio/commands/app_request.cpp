#include "commands/app_request.h"

#include <algorithm>
#include <cerrno>
#include <optional>

#include "manager/manager_client.h"
#include "manager/manager_reply.h"
#include "packages/package_listing.h"
#include "process/failure.h"
#include "tarvio/package.h"
#include "terminal/json.h"
#include "terminal/printable_text.h"
#include "terminal/words.h"

namespace client {

namespace {

using Name = std::optional<std::string>;  // none when all applications are meant

// The manager reads lines of at most so many bytes.
constexpr size_t kMaxName = 254;

// Whether the manager, which takes the first application whose name contains the given text (oddity
// 90), comes to the one that has exactly this name.
bool is_first_match(const std::string& name) {
  const Listing listing = list_packages(TQ_CATEGORY_APPLICATION, TQ_SUBCATEGORY_ANY, nullptr);
  const auto first = std::find_if(
      listing.packages.begin(), listing.packages.end(),
      [&](const Package& package) { return package.name.find(name) != std::string::npos; });
  return first != listing.packages.end() && first->name == name;
}

std::string success_line(const AppRequest& request, const Name& name) {
  std::string line = request.done;
  if (!name) {
    line += " all applications";
  } else if (is_first_match(*name)) {
    line += ' ' + *name;
  } else {
    line += " the first application whose name contains '" + *name + "'";
  }
  return printable(line) + '\n';
}

std::string complaint_of(const AppRequest& request, const char* word, const Name& name,
                         int32_t code, const std::string& message) {
  const std::string reason = message + " (" + std::to_string(code) + ")";
  if (!name)
    return std::string(word) + ": an application failed to " + request.verb + ": " + reason;
  const char* const remedy = code == EINVAL ? "; see 'tarvio list --category application'" : "";
  return std::string("cannot ") + request.verb + " '" + *name + "': " + reason + remedy;
}

// Throws a Failure for anything but a whole reply.
int32_t exchange(const AppRequest& request, const Name& name, double seconds) {
  constexpr size_t kMaxShown = 40;
  const Answer answer = ask_manager(request.command, name ? name->c_str() : nullptr, seconds);
  if (const std::string broken = broken_off(answer); !broken.empty()) {
    throw Failure(answer.error, broken);
  }
  if (answer.bytes.empty()) {
    throw Failure(EPROTO, "the manager closed the connection without a result");
  }
  const std::optional<int32_t> code = parse_result_code(answer.bytes);
  if (code) return *code;
  throw Failure(EPROTO,
                "the manager's reply is not a result: '" + answer.bytes.substr(0, kMaxShown) + "'");
}

}  // namespace

Result request_app(const AppRequest& request, const Arguments& arguments) {
  Name name;
  if (!arguments.operands.empty()) name = application_name(arguments.operands.front());
  const char* const word = arguments.command->word;
  const int32_t code = exchange(request, name, arguments.timeout_seconds);
  const std::string message = name && code == EINVAL ? "no such application" : result_words(code);

  Json json = {{"command", word}};
  if (name) json["name"] = *name;
  json["code"] = code;
  json["message"] = message;

  Result result = {.json = text_of(json)};
  if (code == 0) {
    result.text = success_line(request, name);
  } else {
    result.status = kFailed;
    result.complaint = complaint_of(request, word, name, code, message);
  }
  return result;
}

std::string application_name(const std::string& operand) {
  if (operand.empty()) throw UsageError("NAME must not be empty");
  if (operand.find_first_of("\r\n") != std::string::npos) {
    throw UsageError("NAME must not contain a line end");
  }
  if (operand.size() > kMaxName) {
    throw UsageError("NAME must not be longer than " + std::to_string(kMaxName) + " bytes");
  }
  return operand;
}

}  // namespace client
