// The members of an ar archive, as far as package files have them.
#ifndef TARVIO_CLIENT_PACKAGES_AR_ARCHIVE_H
#define TARVIO_CLIENT_PACKAGES_AR_ARCHIVE_H

#include <sys/types.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "base/owners.h"

namespace client {

class ArchiveFile {
 public:
  struct Member {
    std::string name;
    off_t start;
    uint64_t bytes;
  };

  // Throws a Failure for a file that is not an archive, or truncated.
  explicit ArchiveFile(const std::string& path);

  // Throws a Failure when there is no such member, or more than one.
  [[nodiscard]] const Member& find(std::string_view name) const;
  // Throws a Failure unless there are just these members, each of them once.
  void check_only(std::initializer_list<std::string_view> names) const;
  // Bytes of a member from a place on, as many as there are up to the size.
  [[nodiscard]] std::string read(const Member& member, uint64_t from, size_t size) const;
  // Bytes of a member up to the last one that is not 0.
  [[nodiscard]] uint64_t bytes_without_fill(const Member& member) const;
  // Writes a member as a new file.
  void unpack(const Member& member, const std::string& path) const;

 private:
  tarvio::Fd file_;
  std::vector<Member> members_;
};

}  // namespace client

#endif
