#include "board/opkg_records.h"

#include <filesystem>
#include <optional>
#include <set>
#include <system_error>

#include "base/line_cutter.h"
#include "process/system_file.h"

namespace agent {

namespace {

namespace fs = std::filesystem;

constexpr const char* kStatusFiles[] = {"/usr/lib/opkg/status", "/var/lib/opkg/status"};
constexpr std::string_view kControl = ".control";

// The value of a line "KEY: VALUE".
std::optional<std::string> value_in(std::string_view line, std::string_view key) {
  if (!line.starts_with(key)) return std::nullopt;
  line.remove_prefix(key.size());
  while (line.starts_with(' ')) line.remove_prefix(1);
  while (line.ends_with(' ') || line.ends_with('\r')) line.remove_suffix(1);
  return std::string(line);
}

struct Paragraph {
  std::string name;
  std::string version = {};
  std::string state = {};  // the third word of the status
};

std::vector<Paragraph> paragraphs_in(std::string_view text) {
  std::vector<Paragraph> paragraphs;
  while (!text.empty()) {
    const std::string_view line = tarvio::take_line(text);
    if (const auto name = value_in(line, "Package:")) paragraphs.push_back({.name = *name});
    if (paragraphs.empty()) continue;
    if (const auto version = value_in(line, "Version:")) paragraphs.back().version = *version;
    if (const auto status = value_in(line, "Status:")) {
      paragraphs.back().state = status->substr(status->rfind(' ') + 1);
    }
  }
  return paragraphs;
}

std::map<std::string, std::string> versions_in(const fs::path& directory) {
  std::map<std::string, std::string> versions;
  std::error_code error;
  for (fs::directory_iterator at(directory, error), end; !error && at != end; at.increment(error)) {
    if (at->path().extension() != kControl) continue;
    for (const Paragraph& paragraph : paragraphs_in(client::read_system_file(at->path()))) {
      versions[paragraph.name] = paragraph.version;
    }
  }
  return versions;
}

}  // namespace

std::vector<std::string> unfinished_in(std::string_view status,
                                       const std::map<std::string, std::string>& versions) {
  std::set<std::string> unfinished;
  for (const auto& [name, version] : versions) unfinished.insert(name);
  for (const Paragraph& paragraph : paragraphs_in(status)) {
    // Of a feed, or removed but for its configuration.
    if (paragraph.state == "not-installed" || paragraph.state == "config-files") continue;
    const auto found = versions.find(paragraph.name);
    const bool is_whole = paragraph.state == "installed" && found != versions.end() &&
                          found->second == paragraph.version;
    if (is_whole) {
      unfinished.erase(paragraph.name);
    } else {
      unfinished.insert(paragraph.name);
    }
  }
  return {unfinished.begin(), unfinished.end()};
}

std::vector<std::string> unfinished_packages(const std::string& root) {
  for (const char* path : kStatusFiles) {
    std::error_code error;
    const std::string file = root + path;
    if (fs::exists(file, error)) {
      return unfinished_in(client::read_system_file(file), versions_in(root + kInformation));
    }
  }
  return {};
}

}  // namespace agent
