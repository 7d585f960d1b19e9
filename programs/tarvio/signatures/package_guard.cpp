#include "signatures/package_guard.h"

#include <sys/stat.h>

#include <cerrno>

#include "packages/version_order.h"
#include "process/failure.h"
#include "signatures/key_ring.h"
#include "signatures/package_signature.h"
#include "signatures/small_file.h"

namespace client {

namespace {

constexpr char kCopy[] = "signed.tbx";

bool is_there(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0;
}

}  // namespace

PackageGuard::PackageGuard(const WorkDirectory& directory, const std::string& file, Use use,
                           Demand demand, const std::string& remedy, double seconds,
                           Progress& progress)
    : policy_(read_policy()),
      is_required_(demand == Demand::kSignature || policy_.requires_signature(use)),
      path_(readable_file(file)) {
  if (!is_required_ && !is_there(signature_path(file))) return;
  const KeyRing ring = read_key_ring();
  if (!is_required_ && ring.keys.empty()) return;
  check_place(directory.path(), remedy);
  const Signature signature = read_signature(file);
  path_ = directory / kCopy;
  progress.begin(file);
  check_signature(directory, file, signature, ring, path_, seconds, progress);
  signature_ = signature;
}

void PackageGuard::check_identity(const PackageFile& package) const {
  if (signature_) check_comment(signature_->comment, package);
}

void PackageGuard::check_version(const PackageFile& package,
                                 const std::optional<std::string>& installed) const {
  if (policy_.allow_downgrade || !installed) return;
  // Such as an image of a backup, which may be of any age.
  if (package.version.empty()) {
    throw Failure(EPERM,
                  std::string("it has no version, so allow_downgrade: no refuses it; set "
                              "allow_downgrade: yes in ") +
                      kPolicyFile + " to accept it",
                  kNotTrusted);
  }
  if (!is_older(package.version, *installed)) return;
  throw Failure(EPERM,
                "its version " + package.version + " is older than the installed " + *installed +
                    "; set allow_downgrade: yes in " + kPolicyFile + " to go back",
                kNotTrusted);
}

}  // namespace client
