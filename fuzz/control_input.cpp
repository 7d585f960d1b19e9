// Control files, as the library reads them.
#include "fuzzer.h"
#include "memory_file.h"
#include "models.h"
#include "tarvio/conf.h"

namespace tarvio_fuzz {
namespace {

constexpr size_t kPieceBytes = 255;
constexpr char kSeparators[] = ": ";

Pairs expected_of(const std::string& text) {
  Pairs pairs;
  for (const std::string& piece : pieces_of(text, kPieceBytes)) {
    const std::string line = chopped(piece);
    if (line.size() <= 1 || line.find(kSeparators) == std::string::npos) continue;
    const Texts words = words_of(line, kSeparators);
    if (words.size() > 1) store(pairs, words[0], words[1]);
  }
  return pairs;
}

std::string check_control(const std::string& text) {
  const MemoryFile file(text);
  const Pairs expected = expected_of(text);
  tq_conf* const conf = tq_conf_open(file.path().c_str());
  if ((conf == nullptr) != expected.empty()) return "an object without pairs, or none with some";
  for (const auto& [name, value] : expected) {
    if (tq_conf_read(conf, name.c_str()) != value) return "another value of " + name;
  }
  return take_pairs(conf) == expected ? "" : "other pairs";
}

}  // namespace

const Fuzzer kControl = {.corpus = "control", .check = check_control};

}  // namespace tarvio_fuzz
