#include "faults/fault.h"

#include <cstdlib>

namespace faults {

namespace {

constexpr const char* kKinds[FAULT_KINDS] = {"alloc", "call"};

}  // namespace

std::optional<Fault> parse_fault(const std::string& text) {
  const size_t colon = text.find(':');
  const size_t second = text.find(':', colon + 1);
  for (uint32_t kind = 0; kind < FAULT_KINDS && colon != std::string::npos; ++kind) {
    if (text.substr(0, colon) != kKinds[kind]) continue;
    const auto number = static_cast<uint32_t>(std::strtoul(&text[colon + 1], nullptr, 10));
    if (number == 0) return std::nullopt;
    return Fault{kind, number, second == std::string::npos ? "0" : text.substr(second + 1)};
  }
  return std::nullopt;
}

std::string text_of(const Fault& fault) {
  const std::string text = std::string(kKinds[fault.kind]) + ":" + std::to_string(fault.number);
  return fault.process == "0" ? text : text + ":" + fault.process;
}

}  // namespace faults
