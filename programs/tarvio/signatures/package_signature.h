// The signature of a package file, which lies beside it.
#ifndef TARVIO_CLIENT_SIGNATURES_PACKAGE_SIGNATURE_H
#define TARVIO_CLIENT_SIGNATURES_PACKAGE_SIGNATURE_H

#include <string>

#include "packages/package_file.h"
#include "process/work_directory.h"
#include "signatures/key_ring.h"
#include "signatures/minisign.h"
#include "signatures/secret_key.h"
#include "terminal/progress.h"

namespace client {

inline std::string signature_path(const std::string& file) { return file + ".minisig"; }

// The trusted comment of a package: "package:NAME version:VERSION". Throws a Failure for a package
// that it cannot name.
std::string comment_for(const PackageFile& package);

// Throws a Failure unless the trusted comment is of the package. Other words in it do not matter.
void check_comment(const std::string& comment, const PackageFile& package);

// All throw a Failure that says what is wrong with the signature or the file. The progress, which
// has begun, is that of reading the file.
Signature read_signature(const std::string& file);
// Whether a key that is trusted has signed the file, which is read once, from its beginning to its
// end. With the path of a copy, what was checked is written there.
void check_signature(const WorkDirectory& directory, const std::string& file,
                     const Signature& signature, const KeyRing& ring, const std::string& copy,
                     double seconds, Progress& progress);
// Of the package file, under whatever name.
Signature sign_package(const WorkDirectory& directory, const std::string& file,
                       const SecretKey& key, const PackageFile& package, double seconds,
                       Progress& progress);

// Both throw a Failure: writes it beside the package file, in place of another one; and removes the
// one that is there, if any.
void write_signature(const std::string& file, const Signature& signature);
void remove_signature(const std::string& file);

}  // namespace client

#endif
