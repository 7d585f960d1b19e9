// What the administrator demands of packages: /etc/tarvio/tarvio.conf.
#ifndef TARVIO_CLIENT_SIGNATURES_POLICY_H
#define TARVIO_CLIENT_SIGNATURES_POLICY_H

#include <string>

namespace client {

inline constexpr char kPolicyFile[] = "/etc/tarvio/tarvio.conf";

// What a package file is to be used for.
enum class Use { kInstall, kRestore };

// What of the policy the caller overrides.
enum class Demand { kPolicy, kSignature };

struct Policy {
  std::string require_signature = "no";  // or install, restore, all
  bool allow_downgrade = true;

  [[nodiscard]] bool requires_signature(Use use) const;
};

// Without a file, the defaults. Throws a Failure that names the line which is wrong, and for a file
// or a directory of it that is not root's alone.
Policy read_policy();

}  // namespace client

#endif
