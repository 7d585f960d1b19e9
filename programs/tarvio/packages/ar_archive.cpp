#include "packages/ar_archive.h"

#include <ar.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>

#include "base/pipe.h"
#include "process/failure.h"

namespace client {

namespace {

constexpr size_t kPiece = 65536;
constexpr size_t kMaxMembers = 1000;  // package files have eight at most
constexpr mode_t kOwnerOnly = 0600;

[[noreturn]] void fail_damaged(const char* why = "a member is truncated") {
  throw Failure(EINVAL, std::string("damaged or not a package file: ") + why);
}

// As many bytes as there are up to the size.
std::string read_at(int fd, off_t at, size_t size) {
  std::string bytes(size, '\0');
  size_t done = 0;
  while (done < size) {
    const ssize_t count =
        pread(fd, bytes.data() + done, size - done, at + static_cast<off_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw Failure::of_system("cannot read it");
    if (count == 0) break;
    done += static_cast<size_t>(count);
  }
  bytes.resize(done);
  return bytes;
}

// The ar of GNU ends a name with a slash, others with blanks.
std::string name_in(const ar_hdr& header) {
  const std::string_view field(header.ar_name, sizeof header.ar_name);
  std::string name(field.substr(0, field.find_last_not_of(' ') + 1));
  if (name.size() > 1 && name.back() == '/') name.pop_back();
  return name;
}

std::optional<uint64_t> size_in(const ar_hdr& header) {
  uint64_t size = 0;
  const char* const end = header.ar_size + sizeof header.ar_size;
  const auto [rest, error] = std::from_chars(header.ar_size, end, size);
  const bool is_number =
      error == std::errc() && std::all_of(rest, end, [](char letter) { return letter == ' '; });
  return is_number ? std::optional(size) : std::nullopt;
}

}  // namespace

ArchiveFile::ArchiveFile(const std::string& path)
    : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  struct stat status = {};
  if (!file_.valid() || fstat(file_.get(), &status) != 0) {
    throw Failure::of_system("cannot open it");
  }
  if (read_at(file_.get(), 0, SARMAG) != ARMAG) throw Failure(EINVAL, "not a package file");
  for (off_t at = SARMAG; at < status.st_size;) {
    const std::string bytes = read_at(file_.get(), at, sizeof(ar_hdr));
    ar_hdr header = {};
    if (bytes.size() != sizeof header) fail_damaged();
    if (members_.size() == kMaxMembers) fail_damaged("it has more than 1000 members");
    memcpy(&header, bytes.data(), sizeof header);
    at += static_cast<off_t>(sizeof header);
    const std::optional<uint64_t> size = size_in(header);
    const bool is_whole = size && *size <= static_cast<uint64_t>(status.st_size - at) &&
                          memcmp(header.ar_fmag, ARFMAG, sizeof header.ar_fmag) == 0;
    if (!is_whole) fail_damaged();
    members_.push_back({name_in(header), at, *size});
    at += static_cast<off_t>(*size + *size % 2);
  }
}

const ArchiveFile::Member& ArchiveFile::find(std::string_view name) const {
  const auto has_name = [name](const Member& member) { return member.name == name; };
  const auto found = std::find_if(members_.begin(), members_.end(), has_name);
  if (found == members_.end()) throw Failure(ENOENT, "member " + std::string(name) + " is missing");
  if (std::find_if(found + 1, members_.end(), has_name) != members_.end()) {
    throw Failure(EINVAL, "member " + std::string(name) + " occurs more than once");
  }
  return *found;
}

void ArchiveFile::check_only(std::initializer_list<std::string_view> names) const {
  for (const std::string_view name : names) (void)find(name);
  for (const Member& member : members_) {
    if (std::find(names.begin(), names.end(), member.name) == names.end()) {
      throw Failure(EINVAL, "it has another member, '" + member.name + "'");
    }
  }
}

std::string ArchiveFile::read(const Member& member, uint64_t from, size_t size) const {
  const uint64_t left = from < member.bytes ? member.bytes - from : 0;
  return read_at(file_.get(), member.start + static_cast<off_t>(from),
                 static_cast<size_t>(std::min<uint64_t>(size, left)));
}

uint64_t ArchiveFile::bytes_without_fill(const Member& member) const {
  uint64_t end = member.bytes;
  while (end > 0) {
    const uint64_t begin = (end - 1) / kPiece * kPiece;
    const std::string piece = read(member, begin, static_cast<size_t>(end - begin));
    const size_t last = piece.find_last_not_of('\0');
    if (last != std::string::npos) return begin + last + 1;
    end = begin;
  }
  return 0;
}

void ArchiveFile::unpack(const Member& member, const std::string& path) const {
  const tarvio::Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerOnly));
  if (!file.valid()) throw Failure::of_system("cannot unpack " + member.name);
  for (uint64_t at = 0; at < member.bytes;) {
    const std::string piece = read(member, at, kPiece);
    if (piece.empty()) fail_damaged();
    if (!tarvio::write_all(file.get(), piece))
      throw Failure::of_system("cannot unpack " + member.name);
    at += piece.size();
  }
}

}  // namespace client
