#include "signatures/policy.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "process/failure.h"
#include "process/paths.h"
#include "runtime/conf_file.h"
#include "signatures/small_file.h"

namespace client {

namespace {

constexpr char kRequireSignature[] = "require_signature";
constexpr char kAllowDowngrade[] = "allow_downgrade";

bool is_one_of(std::string_view value, std::initializer_list<std::string_view> words) {
  for (const std::string_view word : words) {
    if (value == word) return true;
  }
  return false;
}

const char* complaint_about(const char* key, const char* value) {
  if (strcmp(key, kRequireSignature) == 0) {
    return is_one_of(value, {"no", "install", "restore", "all"})
               ? nullptr
               : "unknown require_signature: write no, install, restore or all";
  }
  if (strcmp(key, kAllowDowngrade) == 0) {
    return is_one_of(value, {"yes", "no"}) ? nullptr : "unknown allow_downgrade: write yes or no";
  }
  return "unknown key: use require_signature or allow_downgrade";
}

}  // namespace

bool Policy::requires_signature(Use use) const {
  return require_signature == "all" ||
         require_signature == (use == Use::kInstall ? "install" : "restore");
}

Policy read_policy() {
  Policy policy;
  // Who can change the directory can take the file away, so that comes first.
  if (!check_owned_by_root(directory_of(kPolicyFile), S_IFDIR) ||
      !check_owned_by_root(kPolicyFile, S_IFREG)) {
    return policy;
  }
  runtime::ConfFile file;
  runtime::Mistake mistake;
  if (!runtime::read_conf_file(kPolicyFile, runtime::MissingFile::kRefused, complaint_about, file,
                               mistake, runtime::WordsBeforeKey::kRefused)) {
    throw Failure(EINVAL, std::string(mistake.place) + ": " + mistake.why);
  }
  const auto value_of = [&](const char* key) { return tq_conf_read(file.pairs.get(), key); };
  if (const char* value = value_of(kRequireSignature); *value != '\0') {
    policy.require_signature = value;
  }
  policy.allow_downgrade = strcmp(value_of(kAllowDowngrade), "no") != 0;
  return policy;
}

}  // namespace client
