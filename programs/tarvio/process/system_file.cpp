#include "process/system_file.h"

#include <array>

#include "base/owners.h"

namespace client {

std::string read_system_file(const std::string& path) {
  std::string text;
  const tarvio::File file(fopen(path.c_str(), "re"));
  if (file == nullptr) return text;
  std::array<char, 4096> piece;
  while (const size_t size = fread(piece.data(), 1, piece.size(), file.get())) {
    text.append(piece.data(), size);
  }
  if (ferror(file.get()) != 0) text.clear();
  return text;
}

}  // namespace client
