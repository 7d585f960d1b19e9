#include "flash/image_check.h"

#include <unistd.h>

#include <cerrno>
#include <string>

#include "process/failure.h"
#include "terminal/words.h"

namespace client {

namespace {

using Member = ArchiveFile::Member;

constexpr size_t kPiece = 65536;

void check_size(const Member& member, const AreaPart& part) {
  if (member.bytes <= part.largest_bytes) return;
  throw Failure(EFBIG, member.name + " of " + size_words(member.bytes) +
                           " is larger than its area of " + size_words(part.largest_bytes));
}

void check_file_system(const Member& member, const AreaPart& part) {
  if (member.bytes == 0 || member.bytes % tarvio::kEraseBlockBytes != 0) {
    throw Failure(EIO, "its image is not a whole number of erase blocks");
  }
  check_size(member, part);
}

void check_fits(const Member& member, const AreaPart& part) {
  if (member.bytes == 0) throw Failure(EINVAL, member.name + " is empty");
  check_size(member, part);
  const uint64_t page = size_of_device(part.device).page_bytes;
  if (page == 0 || member.bytes % page != 0) {
    throw Failure(EINVAL, member.name + " is not a whole number of pages of " +
                              std::to_string(page) + " bytes");
  }
}

// The zeros that a backup pads with, because of bad blocks, need no room.
void check_room(const ArchiveFile& package, const Member& member, const AreaPart& part,
                const FlashJobs& jobs) {
  const uint64_t good = jobs.good_bytes(part.device);
  const uint64_t room = good - std::min<uint64_t>(good, part.start);
  if (member.bytes <= room || package.bytes_without_fill(member) <= room) return;
  throw Failure(ENOSPC, member.name + " of " + size_words(member.bytes) +
                            " does not fit into the good blocks of " + part.device +
                            ", which hold " + size_words(room));
}

bool is_fill(const std::string& bytes) { return bytes.find_first_not_of('\0') == bytes.npos; }

void compare(const ArchiveFile& package, const Member& member, const std::string& dump,
             const AreaPart& part) {
  const tarvio::File file(fopen(dump.c_str(), "re"));
  if (file == nullptr) {
    throw Failure(ENODATA, std::string("no data could be read from ") + part.device);
  }
  std::string other;
  for (uint64_t at = 0; at < member.bytes;) {
    const std::string piece = package.read(member, at, kPiece);
    other.resize(piece.size());
    other.resize(fread(other.data(), 1, other.size(), file.get()));
    if (piece.empty() || piece.compare(0, other.size(), other) != 0 ||
        !is_fill(piece.substr(other.size()))) {
      throw Failure(EIO, std::string("verification failed: ") + part.device + " differs from " +
                             member.name + " at about byte " + std::to_string(at));
    }
    at += piece.size();
  }
}

}  // namespace

uint64_t check_saved(const ArchiveFile& package, const FlashArea& area) {
  uint64_t bytes = 0;
  for (const AreaPart& part : parts_of(area)) {
    const Member& member = package.find(member_of(part));
    bytes += member.bytes;
    if (area.is_jffs2) {
      check_file_system(member, part);
    } else if (member.bytes != part.backup_bytes) {
      throw Failure(EIO, member.name + " has " + size_words(member.bytes) + " instead of " +
                             size_words(part.backup_bytes));
    }
  }
  return bytes;
}

uint64_t check_to_restore(const ArchiveFile& package, const FlashArea& area,
                          const FlashJobs& jobs) {
  uint64_t bytes = 0;
  for (const AreaPart& part : parts_of(area)) {
    const Member& member = package.find(member_of(part));
    check_fits(member, part);
    check_room(package, member, part, jobs);
    bytes += member.bytes;
  }
  return bytes;
}

uint64_t verify(const ArchiveFile& package, const FlashArea& area, const FlashJobs& jobs) {
  uint64_t bytes = 0;
  for (const AreaPart& part : parts_of(area)) {
    const Member& member = package.find(member_of(part));
    const std::string dump = jobs.dump(part);
    compare(package, member, dump, part);
    (void)unlink(dump.c_str());
    bytes += member.bytes;
  }
  return bytes;
}

}  // namespace client
