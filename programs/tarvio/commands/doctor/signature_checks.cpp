// The keys of signatures, and what the administrator demands.
#include <algorithm>
#include <string>

#include "commands/doctor/finding.h"
#include "packages/installed.h"
#include "signatures/key_ring.h"
#include "signatures/policy.h"

namespace client {

namespace {

constexpr char kKeysRow[] = "keys";

size_t count_of_valid(const KeyRing& ring) {
  return static_cast<size_t>(
      std::count_if(ring.keys.begin(), ring.keys.end(), [&](const PublicKey& key) {
        return std::find(ring.revoked.begin(), ring.revoked.end(), key.id) == ring.revoked.end();
      }));
}

Finding finding_of(const KeyRing& ring) {
  const size_t valid = count_of_valid(ring);
  const std::string found = std::to_string(valid) + " valid, " +
                            std::to_string(ring.revoked.size()) + " revoked, in " + kKeyDirectory;
  const std::string required = read_policy().require_signature;
  if (valid == 0 && required != "no") {
    return {.check = kKeysRow,
            .status = CheckStatus::kFailed,
            .found = found + ", so " +
                     (required == "all" ? "no package is accepted" : required + " accepts none"),
            .remedy = "put the public key of your packages there"};
  }
  return {.check = kKeysRow, .found = found};
}

// A file that is not used, with what is wrong with it, and the remedy if that has one.
Finding finding_of(const std::string& refused) {
  const size_t end = refused.rfind("; ");
  const bool has_remedy = end != std::string::npos;
  return {.check = kKeysRow,
          .status = CheckStatus::kWarning,
          .found = "not used: " + refused.substr(0, end),
          .remedy = has_remedy ? refused.substr(end + 2) : "replace the file, or remove it"};
}

}  // namespace

Findings check_policy(const Examination& /*examination*/) {
  const Policy policy = read_policy();
  Finding finding = {.check = "package policy",
                     .found = "require_signature is " + policy.require_signature +
                              ", allow_downgrade is " + (policy.allow_downgrade ? "yes" : "no")};
  if (policy.allow_downgrade) return {finding};
  try {
    (void)system_version();
  } catch (const Failure& failure) {
    finding.status = CheckStatus::kWarning;
    finding.found += std::string(", so restore accepts no image: ") + failure.what();
    finding.remedy = "write the name of the installed system's package into " + system_file();
  }
  return {finding};
}

Findings check_keys(const Examination& /*examination*/) {
  const KeyRing ring = read_key_ring();
  Findings findings = {finding_of(ring)};
  for (const std::string& refused : ring.refused) findings.push_back(finding_of(refused));
  return findings;
}

}  // namespace client
