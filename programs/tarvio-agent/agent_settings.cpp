#include "agent_settings.h"

#include <limits.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "fleet/topics.h"
#include "runtime/conf_file.h"

namespace agent {

namespace {

constexpr char kDevice[] = "device";
constexpr char kTags[] = "tags";
constexpr char kRequireSignature[] = "require_signature";
constexpr char kDirectory[] = "directory";
constexpr char kDownloadCaFile[] = "download_ca_file";
constexpr char kRunAs[] = "run_as";
constexpr char kNoName[] =
    "the value is not a name: use 1 to 64 letters, digits, '.', '_' and '-', a letter or a digit "
    "first";

std::vector<std::string> tags_in(std::string_view text) {
  std::vector<std::string> tags;
  while (!text.empty()) {
    const size_t end = std::min(text.find(','), text.size());
    tags.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return tags;
}

const char* complaint_about_tags(const char* value) {
  for (const std::string& tag : tags_in(value)) {
    if (!fleet::is_name(tag))
      return "the value is not a list of tags: write names with a comma between them";
  }
  return nullptr;
}

const char* complaint_about(const char* key, const char* value) {
  if (fleet::is_broker_key(key)) return fleet::complaint_about_broker(key, value);
  if (std::strcmp(key, kDevice) == 0) return fleet::is_name(value) ? nullptr : kNoName;
  if (std::strcmp(key, kTags) == 0) return complaint_about_tags(value);
  if (std::strcmp(key, kRequireSignature) == 0) {
    return std::strcmp(value, "yes") == 0 || std::strcmp(value, "no") == 0
               ? nullptr
               : "unknown require_signature: write yes or no";
  }
  if (std::strcmp(key, kDirectory) == 0 || std::strcmp(key, kDownloadCaFile) == 0) {
    return value[0] == '/' ? nullptr : "the value is not a path that begins with /";
  }
  if (std::strcmp(key, kRunAs) == 0) return nullptr;
  return "unknown key: use device, tags, require_signature, directory, run_as, download_ca_file, "
         "broker, tls, "
         "ca_file, certificate, key, user or password_file";
}

std::string host_name() {
  std::array<char, HOST_NAME_MAX + 1> name = {};
  (void)gethostname(name.data(), name.size() - 1);
  return name.data();
}

}  // namespace

Settings read_settings(const std::string& file) {
  runtime::ConfFile conf;
  runtime::Mistake mistake;
  if (!runtime::read_conf_file(file.c_str(), runtime::MissingFile::kRefused, complaint_about, conf,
                               mistake, runtime::WordsBeforeKey::kRefused)) {
    throw std::runtime_error(std::string(mistake.place) + ": " + mistake.why);
  }
  const auto value_or = [&](const char* key, const std::string& otherwise) {
    const std::string value = tq_conf_read(conf.pairs.get(), key);
    return value.empty() ? otherwise : value;
  };
  Settings settings;
  settings.broker = fleet::broker_in(conf.pairs.get(), file);
  settings.device = value_or(kDevice, host_name());
  if (!fleet::is_name(settings.device)) {
    throw std::runtime_error(file + ": the host name '" + settings.device +
                             "' cannot be the name of the device: add the line 'device: NAME'");
  }
  settings.tags = tags_in(value_or(kTags, ""));
  settings.requires_signature = value_or(kRequireSignature, "yes") == "yes";
  settings.download_ca_file = value_or(kDownloadCaFile, "");
  settings.directory = value_or(kDirectory, settings.directory);
  settings.run_as = value_or(kRunAs, settings.run_as);
  return settings;
}

}  // namespace agent
