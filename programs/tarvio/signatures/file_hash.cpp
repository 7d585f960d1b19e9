#include "signatures/file_hash.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/owners.h"
#include "base/pipe.h"
#include "process/child.h"
#include "process/failure.h"

namespace client {

namespace {

constexpr mode_t kOwnerOnly = 0600;

tarvio::Fd create_copy(const std::string& path) {
  tarvio::Fd copy(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerOnly));
  if (!copy.valid()) throw Failure::of_system("cannot copy it");
  return copy;
}

std::string hash_and_copy(int file, uint64_t bytes, const std::string& path) {
  const tarvio::Fd copy = path.empty() ? tarvio::Fd() : create_copy(path);
  crypto_generichash_state state;
  (void)crypto_generichash_init(&state, nullptr, 0, std::tuple_size_v<Hash>);
  std::array<char, 65536> piece;
  while (bytes > 0) {
    const size_t wanted = static_cast<size_t>(std::min<uint64_t>(bytes, piece.size()));
    const ssize_t count = tarvio::read_some(file, std::span(piece).first(wanted));
    if (count < 0) throw Failure::of_system("cannot read it");
    if (count == 0) break;  // it became shorter: its hash will not be the signed one
    const std::string_view part(piece.data(), static_cast<size_t>(count));
    if (copy.valid() && !tarvio::write_all(copy.get(), part)) {
      throw Failure::of_system("cannot copy it");
    }
    (void)crypto_generichash_update(&state, reinterpret_cast<const unsigned char*>(part.data()),
                                    part.size());
    bytes -= part.size();
  }
  Hash hash;
  (void)crypto_generichash_final(&state, hash.data(), hash.size());
  return {hash.begin(), hash.end()};
}

}  // namespace

Hash hash_file(const WorkDirectory& directory, int file, uint64_t bytes, const std::string& copy,
               double seconds, Progress& progress) {
  // The child shares the place at which the file is read.
  const auto show = [&] {
    const off_t place = lseek(file, 0, SEEK_CUR);
    progress.at(static_cast<uint64_t>(std::max<off_t>(place, 0)));
  };
  progress.step_if_long("reading", bytes);
  const std::string result =
      run_job(directory, Rights::to_read(file, bytes), "reading the file",
              [&] { return hash_and_copy(file, bytes, copy); }, seconds, {show, progress.tick_ms()})
          .result;
  progress.clear();
  Hash hash;
  if (result.size() != hash.size()) throw Failure(EIO, "reading the file ended without a result");
  std::copy(result.begin(), result.end(), hash.begin());
  return hash;
}

}  // namespace client
