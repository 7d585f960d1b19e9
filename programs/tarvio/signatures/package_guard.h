// What keeps a package file that the policy does not allow from being used.
#ifndef TARVIO_CLIENT_SIGNATURES_PACKAGE_GUARD_H
#define TARVIO_CLIENT_SIGNATURES_PACKAGE_GUARD_H

#include <optional>
#include <string>

#include "packages/package_file.h"
#include "process/work_directory.h"
#include "signatures/minisign.h"
#include "signatures/policy.h"
#include "terminal/progress.h"

namespace client {

class PackageGuard {
 public:
  // Checks the signature if one is required, or if there is one and the device has keys. What was
  // checked is a copy in the work directory, because the file itself may change. Throws a Failure.
  //
  // demand    whether one is required whatever the policy says
  // remedy    what to do when others can change the directory that the work directory is in
  // progress  of the copying
  PackageGuard(const WorkDirectory& directory, const std::string& file, Use use, Demand demand,
               const std::string& remedy, double seconds, Progress& progress);

  // The file to use, absolute: the copy, or without a check the file itself.
  [[nodiscard]] const std::string& path() const { return path_; }

  // Whether nothing may be installed without a signature.
  [[nodiscard]] bool requires_signature() const { return is_required_; }

  // Both throw a Failure: unless what was read from that file is what was signed; and for a version
  // that is older than the installed one, if there is one, or missing.
  void check_identity(const PackageFile& package) const;
  void check_version(const PackageFile& package, const std::optional<std::string>& installed) const;
  // Before the version of the installed system is looked for.
  [[nodiscard]] bool allows_downgrade() const { return policy_.allow_downgrade; }

 private:
  const Policy policy_;
  const bool is_required_;
  std::optional<Signature> signature_;  // that was checked
  std::string path_;
};

}  // namespace client

#endif
