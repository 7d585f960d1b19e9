// Turns the addresses of a fault into names, with the tools of binutils.
#include <cstdio>
#include <sstream>
#include <string>

#include "faults/run.h"

namespace faults {

namespace {

constexpr int kMaxCallers = 6;

// The project's objects; those of libc say nothing.
std::string path_of(const std::string& object) {
  if (object.starts_with("tarviod-")) return TARVIOD;  // executed once more, under another name
  for (const std::string path : {TARVIO_CLIENT, TARVIOD, TARVIO_LIBRARY}) {
    if (path.substr(path.rfind('/') + 1).starts_with(object)) return path;
  }
  return "";
}

std::string first_line_of(const std::string& command) {
  FILE* const pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return "";
  std::string line;
  for (int byte = 0; (byte = fgetc(pipe)) != EOF && byte != '\n';) line += static_cast<char>(byte);
  pclose(pipe);
  return line;
}

// The call is before the address to which it returns.
std::string name_of(const fault_frame& frame, const std::string& path) {
  std::ostringstream command;
  command << "addr2line -Cfpe " << path << " 0x" << std::hex << frame.offset - 1 << " 2>&1";
  return first_line_of(command.str());
}

bool is_plumbing(const std::string& name) {
  return name.starts_with("operator") || name.starts_with("std::") ||
         name.starts_with("nlohmann") || name.starts_with("__") || name.starts_with("_start");
}

// Without namespaces and arguments.
std::string shortened(std::string name) {
  for (const std::string part : {"(anonymous namespace)::", "client::", "tarviod::", "tarvio::"}) {
    for (size_t at = 0; (at = name.find(part)) != std::string::npos;) name.erase(at, part.size());
  }
  return name.substr(0, name.find_first_of("([ "));
}

}  // namespace

std::string place_of(const fault_record& record) {
  std::string place = std::string(record.function) + " in";
  int callers = 0;
  for (uint32_t i = 0; i < record.frame_count && callers < kMaxCallers; ++i) {
    const std::string path = path_of(record.frames[i].object);
    if (path.empty()) continue;
    const std::string name = shortened(name_of(record.frames[i], path));
    if (is_plumbing(name)) continue;
    place += (callers++ == 0 ? " " : " < ") + name;
  }
  return place;
}

}  // namespace faults
