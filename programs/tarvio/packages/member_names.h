// The names of the members in an archive.
#ifndef TARVIO_CLIENT_PACKAGES_MEMBER_NAMES_H
#define TARVIO_CLIENT_PACKAGES_MEMBER_NAMES_H

#include <array>
#include <string>
#include <string_view>

#include "base/line_cutter.h"

namespace client {

// Whether a member is where it belongs, by its line in a verbose listing of tar.
using MemberRule = bool (*)(std::string_view line);

// A regular file right in the archive, with a name such as opkg gives it or an editor makes of it;
// or the archive's own directory.
bool is_control_member(std::string_view line);

// Anything below the directory into which it is unpacked.
bool is_data_member(std::string_view line);

// Finds the first member that is not, for what opkg would do with it.
class MemberNames {
 public:
  explicit MemberNames(MemberRule rule) : rule_(rule) {}

  // A listing comes in pieces.
  void add(std::string_view piece);
  // Throws a Failure that names the member.
  void check(const char* archive) const;

 private:
  MemberRule rule_;
  std::string wrong_;
  std::array<char, 4097> room_ = {};
  tarvio::LineCutter lines_{tarvio::LineEnd::kLineFeed, room_, tarvio::Excess::kDropped};
};

}  // namespace client

#endif
