#include "fleet/file_sha256.h"

#include <sodium.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "base/pipe.h"

namespace fleet {

namespace {

[[noreturn]] void fail() {
  throw std::runtime_error(std::string("cannot read the file: ") + std::strerror(errno));
}

}  // namespace

std::string sha256_of(int fd) {
  crypto_hash_sha256_state state;
  (void)crypto_hash_sha256_init(&state);
  std::array<char, 65536> room;
  if (lseek(fd, 0, SEEK_SET) != 0) fail();
  for (ssize_t count = 0; (count = tarvio::read_some(fd, room)) != 0;) {
    if (count < 0) fail();
    (void)crypto_hash_sha256_update(&state, reinterpret_cast<const unsigned char*>(room.data()),
                                    static_cast<unsigned long long>(count));
  }
  std::array<unsigned char, crypto_hash_sha256_BYTES> hash;
  (void)crypto_hash_sha256_final(&state, hash.data());
  std::array<char, 2 * crypto_hash_sha256_BYTES + 1> text;
  return sodium_bin2hex(text.data(), text.size(), hash.data(), hash.size());
}

}  // namespace fleet
